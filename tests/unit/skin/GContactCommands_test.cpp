#include "CommandsTest.h"

class GContactCommandsTest : public CommandsTest
{
protected:
    // A window with a row for each who asks, as the shipped skin has it.
    void loadRows( )
    {
        load( window( "w", "<Col><Foreach list=\"Contact_Request_List\" as=\"contact\"><Cell id=\"$contact\">"
                           "<Button command=\"(/contacts?accept)\"/></Cell></Foreach></Col>" ) );
    }
    void show( GWStringView names )
    {
        instance.set( u"Contact_Request_List", names );
        clock.advance( 1000000 );
        update( );
    }
    // The button of that row: its second clone is the first entry's.
    GTemplateNode* button( int row )
    {
        GTemplateNode* foreach = node( u"/skin/window_w/col/foreach" );
        auto child = foreach->getChildren( ).begin( );
        std::advance( child, row + 1 );
        return ( *child )->getChild( u"button" );
    }
    std::string status( ) { return value( u"bob@x_Contact_Status" ); }
};

TEST_F( GContactCommandsTest, AcceptingIsAddingTheBuddy )
{
    load( "" );
    show( u"eve@x, bob@x" );
    run( "(/contacts/bob@x?accept)" );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@x" );
    EXPECT_EQ( status( ), "Adding..." );
    EXPECT_EQ( value( u"Contact_Request_Title" ), "Adding..." );
    EXPECT_EQ( sip( ), "" );
}

TEST_F( GContactCommandsTest, RefusalAndBlockAreAnswers )
{
    load( "" );
    show( u"bob@x, eve@x" );
    run( "(/contacts/bob@x?refuse;/contacts/eve@x?block)" );
    EXPECT_EQ( sip( ), "CONTACTANSWER Answer=refuse Buddy-GUID=bob@x" );
    EXPECT_EQ( sip( ), "CONTACTANSWER Answer=block Buddy-GUID=eve@x" );
    EXPECT_EQ( status( ), "Refusing..." );
    EXPECT_EQ( value( u"eve@x_Contact_Status" ), "Blocking..." );
}

TEST_F( GContactCommandsTest, WithoutANameItIsTheRowsOwn )
{
    loadRows( );
    show( u"eve@x, bob@x" );
    run( "(/contacts?accept)", button( 1 ) );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@x" );
    run( "(/contacts?refuse)", button( 0 ) );
    EXPECT_EQ( sip( ), "CONTACTANSWER Answer=refuse Buddy-GUID=eve@x" );
    TestLog::expect( "WARNING Malformed contact path '/contacts', ignoring." );
    run( "(/contacts?accept)" );
    run( "(/contacts?accept)", node( u"/skin/window_w" ) );
    EXPECT_EQ( sip( ), "" );
}

TEST_F( GContactCommandsTest, OnlyWhoAskedIsAnswered )
{
    TestLog::expect( "WARNING Cannot answer 'eve@x' who has not asked, ignoring." );
    TestLog::expect( "WARNING Malformed contact path '/contacts/bob@x/more', ignoring." );
    TestLog::expect( "WARNING Unknown contact action 'marry', ignoring." );
    load( "" );
    show( u"bob@x" );
    run( "(/contacts/eve@x?accept;/contacts/bob@x/more?accept;/contacts/bob@x?marry)" );
    EXPECT_EQ( sip( ), "" );
    EXPECT_EQ( status( ), "" );
}

TEST_F( GContactCommandsTest, NothingIsAnsweredWhileTheListSettles )
{
    load( "" );
    show( u"eve@x, bob@x" );
    instance.set( u"Contact_Request_List", u"bob@x" );
    clock.advance( 400000 );
    run( "(/contacts/bob@x?accept)" );
    run( "(/contacts/bob@x?block)" );
    EXPECT_EQ( sip( ), "" );
    clock.advance( 200000 );
    run( "(/contacts/bob@x?accept)" );
    EXPECT_EQ( sip( ), "ADDBUDDY Buddy-GUID=bob@x" );
    // A second press while the first is on its way.
    run( "(/contacts/bob@x?accept;/contacts/bob@x?block)" );
    EXPECT_EQ( sip( ), "" );
}
