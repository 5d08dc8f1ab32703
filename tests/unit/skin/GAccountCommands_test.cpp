#include "CommandsTest.h"

using GAccountCommandsTest = CommandsTest;

TEST_F( GAccountCommandsTest, ANewAccountNeedsItsForm )
{
    load( window( "new" ) );
    const auto expectStatus = [this]( const std::string& status )
    {
        TestLog::expect( "WARNING Cannot 'new': '" + status + "', ignoring." );
        run( "(/account?new)" );
        EXPECT_EQ( value( u"Logon_Status" ), status );
    };
    expectStatus( "-- Missing email --" );
    instance.set( u"Local_Email", u"a@b" );
    expectStatus( "-- Missing username --" );
    instance.set( u"Local_Username", u"Ann" );
    expectStatus( "-- Missing password --" );
    instance.set( u"Local_Password", u"p" );
    instance.set( u"Local_Username", u"Ann@x" );
    expectStatus( "-- Invalid name (a-z0-9_.-) --" );
    instance.set( u"Local_Username", u"Ann B" );
    expectStatus( "-- Invalid name (a-z0-9_.-) --" );
    EXPECT_EQ( client( ), "" );
    EXPECT_EQ( value( u"new_Window" ), "" );
}

TEST_F( GAccountCommandsTest, ANewAccountLogsOn )
{
    load( window( "new" ) );
    for( const GWStringView name : { u"Local_Email", u"Local_Username", u"Local_Password", u"Local_User_GUID" } )
        instance.set( name, u"Ann" );
    run( "(/account?new)" );
    EXPECT_FALSE( instance.isSet( u"Local_User_GUID" ) );
    EXPECT_EQ( value( u"new_Window" ), "closed" );
    EXPECT_EQ( client( ), "LOGON" );
}

TEST_F( GAccountCommandsTest, ALoginCleansAndCompletesTheName )
{
    load( window( "login" ) );
    instance.set( u"Default_Domain", u"velmora.example" );
    instance.set( u"Local_User_GUID", u"Ann" );
    instance.set( u"Local_Password", u"p" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Local_User_GUID" ), "ann@velmora.example" );
    EXPECT_EQ( value( u"login_Window" ), "closed" );
    EXPECT_EQ( client( ), "LOGON" );
    instance.set( u"Local_User_GUID", u"Ann@Other" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Local_User_GUID" ), "ann@other" );
    EXPECT_EQ( client( ), "LOGON" );
}

TEST_F( GAccountCommandsTest, ALoginNeedsAValidNameAndAPassword )
{
    load( window( "login" ) );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Missing name or password --" );
    instance.set( u"Local_User_GUID", u"a n n" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Missing name or password --" );
    instance.set( u"Local_Password", u"p" );
    run( "(/account?login)" );
    EXPECT_EQ( value( u"Logon_Status" ), "-- Invalid name (a-z0-9@_.-) --" );
    EXPECT_EQ( client( ), "" );
    EXPECT_EQ( value( u"login_Window" ), "" );
}

TEST_F( GAccountCommandsTest, OtherAccountActions )
{
    load( "" );
    run( "(/account?updatecapture)" );
    EXPECT_EQ( sip( ), "UPDATECAPTURE" );
    TestLog::expect( "WARNING Unknown account action 'x', ignoring." );
    run( "(/account?x)" );
}
