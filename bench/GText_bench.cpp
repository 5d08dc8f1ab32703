// Messages, the blackboard and expressions beside a signalling library, a locked map and a shared grammar.
#include "Bench.h"

#include "client/skin/GAttributeStack.h"
#include "client/skin/GEvaluator.h"
#include "runtime/GHTTPHeaders.h"
#include "runtime/GInstance.h"

#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <sofia-sip/msg.h>
#include <sofia-sip/sip.h>
#include <sofia-sip/sip_protos.h>
#include <thread>

namespace
{
// ---- Messages.

// 431 bytes with 12 headers, as a signalling agent writes them.
const GString SIP_INVITE = "INVITE sip:bob@biloxi.example.com SIP/2.0\r\n"
                           "Via: SIP/2.0/UDP pc33.example.com:5060;branch=z9hG4bKnashds8\r\n"
                           "Max-Forwards: 70\r\n"
                           "To: Bob <sip:bob@biloxi.example.com>\r\n"
                           "From: Alice <sip:alice@example.com>;tag=1928301774\r\n"
                           "Call-ID: a84b4c76e66710@pc33.example.com\r\n"
                           "CSeq: 314159 INVITE\r\n"
                           "Contact: <sip:alice@pc33.example.com>\r\n"
                           "User-Agent: Softphone/1.0\r\n"
                           "Supported: replaces\r\n"
                           "Allow: INVITE, ACK, BYE\r\n"
                           "Expires: 300\r\n"
                           "Content-Length: 0\r\n"
                           "\r\n";

// The same size and number of headers, as the client writes them.
GString ownInvite( )
{
    GHTTPHeaders message( u"INVITE" );
    message.set( u"CSeq", u"1723 (GDeviceSession)" );
    message.set( u"CSeq-Group", u"1719" );
    message.set( u"From", u"alice@example.com" );
    message.set( u"From-Device-GUID", u"5E4B1C7A-2F0D-4B83-9E55-0C2D7A61F3B8" );
    message.set( u"Media-Time", u"13345678901234567" );
    message.set( u"Route-List", u"local://192.168.1.7:40112, open://203.0.113.9:40112" );
    message.set( u"Sent-From", u"203.0.113.9:40112" );
    message.set( u"Sent-From-Type", u"local" );
    message.set( u"Sent-To", u"198.51.100.23:5100" );
    message.set( u"To", u"bob@example.com" );
    message.set( u"To-Device-GUID", u"A1F0C3D2-77E1-4C0B-8D11-9B2E6F005D14" );
    message.set( u"User-Agent", u"x" );
    const size_t missing = SIP_INVITE.size( ) - message.serialize( ).size( );
    message.set( u"User-Agent", GWString( missing + 1, u'x' ) );
    return message.serialize( );
}

void parseWithLibrary( )
{
    msg_t* const message =
        msg_make( sip_default_mclass( ), 0, SIP_INVITE.data( ), static_cast<ssize_t>( SIP_INVITE.size( ) ) );
    if( !message || !sip_object( message ) || !sip_object( message )->sip_cseq ) abort( );
    msg_destroy( message );
}

void messages( Bench::Suite& suite )
{
    constexpr double KILO = 1e-3;
    const GString own = ownInvite( );
    if( own.size( ) != SIP_INVITE.size( ) ) abort( );
    GHTTPHeaders message;
    const auto parse = [&message]( const GString& text )
    {
        if( message.deserialize( text ) != static_cast<int>( text.size( ) ) ) abort( );
        Bench::keep( message );
    };
    suite.rate(
        "message, own", "k/s", KILO, { 2, 5 }, [&] { parse( own ); }, parseWithLibrary );
    suite.rate(
        "message, the library's bytes", "k/s", KILO, { 2, 5 }, [&] { parse( SIP_INVITE ); }, parseWithLibrary );
    suite.allocationsOf( "message, own", 0, [&] { parse( own ); } );
    suite.allocationsOf( "message, the library's bytes", 0, [&] { parse( SIP_INVITE ); } );
}

// ---- The blackboard.

constexpr int NAMES = 5000;
constexpr int READS = 4096;

// What a straightforward table does: one lock, an ordered map, names folded to a string.
class LockedMap
{
public:
    void set( GWStringView name, const GString& value ) { _map[GToLower( name )] = value; }
    void get( GWStringView name, GString& out )
    {
        const std::scoped_lock lock( _mutex );
        const auto found = _map.find( GToLower( name ) );
        if( found == _map.end( ) )
            out.clear( );
        else
            out = found->second;
    }

private:
    std::recursive_mutex _mutex;
    std::map<GWString, GString> _map;
};

// Names as the client has them, in an order of no pattern.
std::vector<GWString> namesOfBuddies( )
{
    std::vector<GWString> names;
    for( int i = 0; i < NAMES; i++ )
        names.push_back(
            GConcat( u"buddy", i / 10, u"@example.com_", i % 10 % 2 ? u"Call_State" : u"Online", i % 10 ) );
    std::shuffle( names.begin( ), names.end( ), std::mt19937( 7 ) );
    return names;
}

template <typename Table>
void readAll( Table& table, const std::vector<GWString>& names, size_t from, int times, GString& out )
{
    for( size_t i = 0; i < static_cast<size_t>( times ) * READS; i++ )
    {
        table.get( names[( from + i ) % names.size( )], out );
        Bench::keep( out );
    }
}

// Threads that wait for their turn, so that a round does not pay for starting them.
template <typename Table>
class Readers
{
public:
    static constexpr int THREADS = 8;
    // A thread reads for longer than the system lets it run at a time.
    static constexpr int TIMES = 16;
    Readers( Table& table, const std::vector<GWString>& names )
    {
        for( int i = 0; i < THREADS; i++ )
            _threads.emplace_back(
                [this, &table, &names, i]
                {
                    GString out;
                    for( _turn.arrive_and_wait( ); !_ends; _turn.arrive_and_wait( ) )
                    {
                        readAll( table, names, static_cast<size_t>( i ) * 601, TIMES, out );
                        _turn.arrive_and_wait( );
                    }
                } );
    }
    ~Readers( )
    {
        _ends = true;
        _turn.arrive_and_wait( );
        for( std::thread& thread : _threads ) thread.join( );
    }
    void run( )
    {
        _turn.arrive_and_wait( );
        _turn.arrive_and_wait( );
    }

private:
    std::barrier<> _turn{ THREADS + 1 };
    bool _ends = false;
    std::vector<std::thread> _threads;
};

void blackboard( Bench::Suite& suite )
{
    constexpr double MILLION = 1e-6;
    const std::vector<GWString> names = namesOfBuddies( );
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"bench_text.ini" ) ) );
    LockedMap map;
    for( size_t i = 0; i < names.size( ); i++ )
    {
        instance->set( names[i], static_cast<int>( i ) );
        map.set( names[i], std::to_string( i ) );
    }
    GString out;
    const auto read = [&] { readAll( *instance, names, 0, 1, out ); };
    suite.rate( "blackboard read, 1 thread", "M/s", READS * MILLION, { 2.5, 4 }, read,
                [&] { readAll( map, names, 0, 1, out ); } );
    suite.allocationsOf( "blackboard read", 0, read );

    suite.useWallClock( true );
    Readers<GInstance> readers( *instance, names );
    Readers<LockedMap> mapReaders( map, names );
    constexpr int ROUNDS = Readers<GInstance>::THREADS * Readers<GInstance>::TIMES;
    constexpr double ALL = READS * ROUNDS * MILLION;
    suite.rate(
        "blackboard read, 8 threads", "M/s", ALL, { 2.5, 9 }, [&] { readers.run( ); }, [&] { mapReaders.run( ); } );
    suite.rate(
        "blackboard read, 8 threads beside 1", "M/s", ALL, { 1, 1.5 }, [&] { readers.run( ); },
        [&] { readAll( *instance, names, 0, ROUNDS, out ); } );
    suite.useWallClock( false );
}

// ---- Expressions.

struct Deaf : IGNotifyListener
{
    void onNotification( int, uint64_t ) override {}
};

// One grammar for all, run over the text each time; its value is run over again while there are names in it.
GWString expand( const GEvaluator& evaluator, const std::map<GWString, GWString>& names, GWString text )
{
    GExpression expression;
    for( GWString last; text != last && text.find( u'$' ) != GWString::npos; )
    {
        last = text;
        text.clear( );
        evaluator.parse( last, expression );
        for( const GExpressionPart& part : expression )
        {
            const auto found = part.isName ? names.find( part.text ) : names.end( );
            text += part.isName ? found == names.end( ) ? GWString( ) : found->second : part.text;
        }
    }
    return text;
}

void expressions( Bench::Suite& suite )
{
    constexpr double MILLION = 1e-6;
    Deaf listener;
    const GNotifyHandle notify = GNotifyOpen( &listener );
    const std::unique_ptr<GInstance> instance( GSAFENEW( GInstance, ( u"bench_text.ini" ) ) );
    const GAttributeList attributes = { { u"align", u"right" }, { u"a", u"buddy7" }, { u"c", u"align" } };
    const std::map<GWString, GWString> names( attributes.begin( ), attributes.end( ) );
    const GEvaluator evaluator;
    {
        GAttributeStack stack( instance.get( ), notify );
        stack.push( u"/skin/window", attributes );
        for( const char16_t* const text : { u"$align", u"{$a}_b", u"${$c}" } )
        {
            GWString value;
            const auto evaluate = [&] { Bench::keep( stack.read( text, value ) ); };
            evaluate( );
            if( value != expand( evaluator, names, text ) ) abort( );
            const std::string name = "expression " + GWideToUTF8( text );
            suite.rate( name, "M/s", MILLION, { 1, 10 }, evaluate,
                        [&] { Bench::keep( expand( evaluator, names, text ) ); } );
            suite.allocationsOf( name, 0, evaluate );
        }
    }
    GNotifyClose( notify );
}
} // namespace

int main( int argc, char** argv )
{
    Bench::Suite suite( "text", argc, argv );
    messages( suite );
    blackboard( suite );
    expressions( suite );
    std::remove( "bench_text.ini" );
    return suite.finish( );
}
