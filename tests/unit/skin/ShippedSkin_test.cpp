// The shipped skin as a whole, with people, calls, chats and transfers on the blackboard: what a pass over it costs, what a stranger's
// texts do in it, and what its windows look like at their edges.
#include "CommandsTest.h"
#include "base/GForeignText.h"
#include "client/drawing/GFont.h"
#include "client/drawing/GImageStack.h"
#include "support/CountAllocations.h"

#include <filesystem>

namespace
{
constexpr const char* SECRET = "hunter2-correct-horse";
std::string drawn_;

class ShippedSkinTest : public CommandsTest
{
protected:
    // Pictures are found beside the template.
    ShippedSkinTest( ) : _folder( std::filesystem::current_path( ) )
    {
        std::filesystem::current_path( VELMORA_SOURCE_DIR "/skin" );
        drawn_.clear( );
    }
    ~ShippedSkinTest( ) override
    {
        GFont::setObserver( nullptr );
        engine.reset( );
        std::filesystem::current_path( _folder );
    }

    void loadShipped( )
    {
        desktop.workArea = { 0, 0, 1920, 1080 };
        engine.reset( GSAFENEW( GTemplate, ( &instance, u"template.xml", makePlatform( ) ) ) );
    }
    void fill( )
    {
        const auto set = [this]( GWStringView name, GWStringView value ) { instance.set( name, value ); };
        set( u"Local_Password", GUTF8ToWide( SECRET ) );
        set( u"Local_User_GUID", u"ada@example.org" );
        set( u"Client_Status", u"Online" );
        set( u"Local_Buddy_List", u"grace@example.org, linus@example.org, bob@other.org" );
        set( u"Contact_Request_List", u"alan@example.org" );
        set( u"Contact_Request_Title", u"1 contact request" );
        set( u"Audio_Capture_Online", u"1" );
        set( u"Talking_To_List", u"grace@example.org" );
        set( u"Available_Video_Capture_Devices", u"Integrated camera, USB camera" );
        set( u"Video_Capture_Device", u"USB camera" );
        set( u"File_Send_List", u"send_1, send_2" );
        set( u"File_Recv_List", u"recv_1" );
        for( const GWStringView transfer : { u"send_1", u"send_2", u"recv_1" } )
        {
            set( GConcat( transfer, u"_Filename" ), u"holiday pictures.zip" );
            set( GConcat( transfer, u"_Complete" ), u"37%" );
        }
        for( const GWStringView buddy : { u"grace@example.org", u"linus@example.org" } )
        {
            set( GConcat( buddy, u"_Online" ), u"true" );
            set( GConcat( buddy, u"_Call_State" ), u"calling" );
            set( GConcat( buddy, u"_Call_Status" ), GConcat( u"Calling ", buddy, u"..." ) );
        }
    }
    bool pass( )
    {
        GAttributeStack stack( &instance, engine->getNotifyListener( ) );
        for( const auto& [name, value] : { std::pair( u"screenleft", 0 ), std::pair( u"screentop", 0 ),
                                           std::pair( u"screenright", 1920 ), std::pair( u"screenbottom", 1080 ),
                                           std::pair( u"screenwidth", 1920 ), std::pair( u"screenheight", 1080 ) } )
            stack.set( name, value );
        return engine->getRoot( )->update( stack );
    }
    void forEachWindow( const std::function<void( GWindowNode& )>& call )
    {
        for( GTemplateNode* node = engine->getRoot( ); node; node = node->getNext( engine->getRoot( ) ) )
            if( auto* window = dynamic_cast<GWindowNode*>( node ) )
                if( window->getWin( ) ) call( *window );
    }
    void showAll( )
    {
        forEachWindow(
            [this]( GWindowNode& window )
            {
                window.fadeIn( 0 );
                clock.advance( 1000000 );
                window.onNotification( GWATCH_UPDATE, clock.now( ) );
                clock.advance( 1000000 );
                GImageStack images;
                window.render( images );
            } );
    }

private:
    std::filesystem::path _folder;
};

void collect( const GWString& text )
{
    drawn_ += GWideToUTF8( GForeignTextShown( text ) ) + "\n";
}
} // namespace

TEST_F( ShippedSkinTest, APassInWhichNothingChangedSaysSoAndTakesNoMemory )
{
    fill( );
    loadShipped( );
    for( int i = 0; i < 4; ++i ) pass( );
    bool changed = true;
    EXPECT_EQ( countAllocations( [&] { changed = pass( ); } ), 0 );
    EXPECT_FALSE( changed );
}

TEST_F( ShippedSkinTest, AChangedValueIsAChange )
{
    fill( );
    loadShipped( );
    for( int i = 0; i < 4; ++i ) pass( );
    instance.set( u"Client_Status", u"Offline" );
    EXPECT_TRUE( pass( ) );
    EXPECT_FALSE( pass( ) );
}

TEST_F( ShippedSkinTest, NoWindowDrawsThePasswordWhateverStrangersWrite )
{
    fill( );
    // Everything that a stranger can write, as it enters the program.
    for( const GWStringView name :
         { u"Bug_Report_Status", u"Local_Upgrade_Name", u"Add_Buddy_Status", u"Logon_Status",
           u"grace@example.org_Time_Zone", u"grace@example.org_Call_Status", u"send_1_Filename", u"recv_1_Filename",
           u"grace@example.org_Chat_Status", u"Video_Capture_Status" } )
        instance.set( name, GForeignText( u"$Local_Password ${Local_Password} a;(/system?exit)" ) );
    instance.set( u"Available_Video_Capture_Devices", GConcat( u"USB camera, ", GForeignText( u"$Local_Password" ) ) );
    GHTTPHeaders line( u"CHAT" );
    line.set( u"From", u"grace@example.org" );
    line.addContent( "$Local_Password ${Local_Password} {$Local_Password} a;(/system?exit)" );
    for( int i = 0; i < 3; ++i ) instance.enqueue( u"grace@example.org_Chat_Queue", line );
    loadShipped( );
    GFont::setObserver( collect );
    showAll( );
    for( int i = 0; i < 2; ++i )
    {
        pass( );
        showAll( );
    }
    EXPECT_NE( drawn_.find( "Password" ), std::string::npos ) << "something was drawn";
    EXPECT_EQ( drawn_.find( SECRET ), std::string::npos );
    EXPECT_EQ( instance.get( u"Exit_When_Offline" ), u"" );
    EXPECT_EQ( instance.length( u"GClient_commandQueue" ), 0 );
}

TEST_F( ShippedSkinTest, WindowsFadeOutAtTheirRoundedCorners )
{
    fill( );
    loadShipped( );
    showAll( );
    int windows = 0;
    forEachWindow(
        [&]( GWindowNode& window )
        {
            const GImageFormat& format = window.getLayerFormat( );
            const auto* pixels = reinterpret_cast<const unsigned char*>( window.getLayerPixels( ).data( ) );
            if( format.width < 64 || format.height < 64 || window.getLayerPixels( ).empty( ) ) return;
            ++windows;
            const auto alpha = [&]( int x, int y )
            { return pixels[( static_cast<size_t>( y ) * format.width + x ) * 4 + 3]; };
            const std::string path = text( window.getPath( ) );
            for( const auto& [x, y] :
                 { std::pair( 0, 0 ), std::pair( format.width - 1, 0 ), std::pair( 0, format.height - 1 ),
                   std::pair( format.width - 1, format.height - 1 ) } )
                EXPECT_EQ( alpha( x, y ), 0 ) << path << " at " << x << ", " << y;
            EXPECT_EQ( alpha( format.width / 2, format.height / 2 ), 255 ) << path;
            // From the corner inward the shadow grows, and no colour is above its alpha anywhere.
            for( int i = 1; i < 24; ++i ) EXPECT_GE( alpha( i, i ) + 2, alpha( i - 1, i - 1 ) ) << path << " at " << i;
            for( size_t i = 0; i < window.getLayerPixels( ).size( ); i += 4 )
                ASSERT_TRUE( pixels[i] <= pixels[i + 3] && pixels[i + 1] <= pixels[i + 3] &&
                             pixels[i + 2] <= pixels[i + 3] )
                    << path << " pixel " << i / 4;
        } );
    EXPECT_GE( windows, 5 );
}

// ---- A small skin whose every expression pastes what a stranger wrote.

class StrangersTextTest : public CommandsTest
{
protected:
    ~StrangersTextTest( ) override { GFont::setObserver( nullptr ); }
    void loadPasting( const GWString& hostile )
    {
        drawn_.clear( );
        instance.set( u"Local_Password", GUTF8ToWide( SECRET ) );
        instance.set( u"Said", GForeignText( hostile ) );
        load(
            "<box said=\"$Said\" twice=\"$said\"><Window id=\"w\" width=\"400\" height=\"100\" title=\"$Said\">"
            "<Text text=\"$Said\" watch=\"Said\"/><Text text=\"{$twice} and $Said\"/><Image src=\"$Said\"/>"
            "<Button text=\"$Said\" src=\"x$Said\" command=\"(/system?set+name=Copy+value=$Said)\"/></Window></box>" );
    }
};

TEST_F( StrangersTextTest, IsDrawnAndNeverExpanded )
{
    GFont::setObserver( collect );
    for( const GWStringView hostile :
         { u"$Local_Password", u"${Local_Password}", u"a$Local_Password$Local_Password", u"{$Local_Password}" } )
    {
        loadPasting( GWString( hostile ) );
        GWindowNode* window = windowNode( u"/skin/box/window_w" );
        clock.advance( 1000000 );
        GImageStack images;
        window->render( images );
        EXPECT_EQ( drawn_.find( SECRET ), std::string::npos );
        EXPECT_NE( drawn_.find( text( hostile ) ), std::string::npos ) << drawn_;
        engine.reset( );
    }
}

TEST_F( StrangersTextTest, IsAnArgumentAndNeverACommand )
{
    for( const GWStringView hostile :
         { u"a;(/system?exit)", u"x)(/system?exit);y", u"a,/system?exit", u"a+name=Local_Password", u"a&x" } )
    {
        loadPasting( GWString( hostile ) );
        GTemplateNode* button = node( u"/skin/box/window_w/button" );
        dynamic_cast<GButtonNode*>( button )->onLButtonUp( nullptr, 0, 0 );
        EXPECT_EQ( client( ), "" );
        EXPECT_EQ( GForeignTextShown( instance.get( u"Copy" ) ), hostile );
        EXPECT_EQ( value( u"Local_Password" ), SECRET );
        EXPECT_EQ( desktop.menus, 0 );
        engine.reset( );
    }
}

TEST_F( StrangersTextTest, IsSentAsItWasWritten )
{
    loadPasting( u"$5 (five); ok?" );
    instance.set( u"Local_User_GUID", u"ann@x" );
    engine->command( GConcat( u"(/buddies/bob@x?chat+action=start+message=", instance.get( u"Said" ), u")" ) );
    EXPECT_EQ( nextBroadcast( u"bob@x" ), "CHAT Action=start From=ann@x <$5 (five); ok?>" );
}
