#include "runtime/GHTTPHeaders.h"
#include "runtime/GInstance.h"
#include "support/CountAllocations.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

TEST( GInstanceHotPath, ReadsAllocateNothing )
{
    const GWString path = GUTF8ToWide( ( std::filesystem::temp_directory_path( ) / "velmora_hot_path.ini" ).string( ) );
    std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( path ) ) );
    instance->set( u"Some_Rather_Long_Name_Of_A_Value", u"a value that is longer than any string holds in place" );
    instance->set( u"Robust_Media", 1 );
    GWString wide;
    GString narrow;
    long sum = 0;
    const auto work = [&]( )
    {
        for( int i = 0; i < 100; ++i )
        {
            instance->get( u"Some_Rather_Long_Name_Of_A_Value", wide );
            instance->get( u"Some_Rather_Long_Name_Of_A_Value", narrow );
            sum +=
                instance->isRobust( u"Robust_Media" ) + instance->calc( u"Robust_Media" ) + instance->isSet( u"None" );
            sum += static_cast<long>( instance->getTimestamp( u"Robust_Media" ) & 1 );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
    EXPECT_GT( sum, 0 );
    // A change of a name that is there already, the same text again, and a look at an empty queue take nothing either.
    const GString first = "a text of the first kind, longer than in place";
    const GString second = "a text of the other kind, longer than in place";
    const auto change = [&]( )
    {
        for( int i = 0; i < 100; ++i )
        {
            instance->set( u"Changing_Name_Of_Some_Length", i % 2 ? first : second );
            instance->set( u"Changing_Name_Of_Some_Length", i % 2 ? first : second );
            instance->open( u"Changing_Name_Of_Some_Length" ).front( ) = 'A';
            instance->close( u"Changing_Name_Of_Some_Length", true );
            sum += instance->length( u"Some_Service_commandQueue" );
            instance->dequeue( u"Some_Service_commandQueue", narrow );
        }
    };
    change( );
    EXPECT_EQ( countAllocations( change ), 0 );
    instance.reset( );
    std::filesystem::remove( GWideToUTF8( path ) );
}
TEST( GHTTPHeadersHotPath, MessageThatIsReadIntoAgainAllocatesNothing )
{
    GHTTPHeaders request( u"INVITE" );
    for( const char16_t* name : { u"To", u"From", u"CSeq", u"Sent-From", u"Sent-To", u"Route-List" } )
        request.set( name, u"a value that is longer than any string holds in place" );
    request.set( u"Escaped: name", u"with\ttab, \u00E4\u20AC and \\" );
    request.set( u"Password", u"secret" );
    request.addContent( GString( 500, 'x' ) );
    request.addContent( GString( 40, 'y' ) );
    const GString text = request.serialize( );
    // The same with its lines in no order, as a stranger may send it.
    const GString shuffled = "A / HTTP/1.1\r\nb: a rather long value of a header\r\na: 1\r\nb: 2\r\nC: 3\r\n\r\n";
    GHTTPHeaders message;
    GWString reason;
    GString written;
    long sum = 0;
    const auto work = [&]( )
    {
        for( int i = 0; i < 100; ++i )
        {
            sum += message.deserialize( text ) + message.deserialize( shuffled );
            sum += message.getResponse( ) + message.calc( u"a" ) + message.test( u"C" ) + message.isMethod( u"A" );
            message.deserialize( text );
            message.serialize( written );
        }
    };
    work( );
    EXPECT_EQ( countAllocations( work ), 0 );
    EXPECT_EQ( written, text );
    EXPECT_GT( sum, 0 );
}
TEST( GLogHotPath, ClosedCategoryComposesNothing )
{
    GLogSetFilter( "" );
    const auto work = []( )
    {
        for( int i = 0; i < 100; ++i ) GLOGIF( 'A', u"a long line that is never composed ", i );
    };
    EXPECT_EQ( countAllocations( work ), 0 );
}
