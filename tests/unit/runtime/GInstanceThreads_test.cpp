// Many threads on one blackboard: readers pass side by side, and none of them ever sees half a change.
#include "runtime/GInstance.h"
#include "runtime/GReaderGate.h"
#include "support/TestFolder.h"

#include <memory>
#include <thread>

namespace
{
class GInstanceThreads : public TestFolder
{
protected:
    void SetUp( ) override
    {
        TestFolder::SetUp( );
        instance.reset( GSAFENEW( GInstance, ( u"settings.ini" ) ) );
    }
    void TearDown( ) override
    {
        instance.reset( );
        TestFolder::TearDown( );
    }
    // Runs `work` on so many threads until `done` of the calling thread has returned.
    template <typename Work, typename Done>
    static void besides( int count, Work work, Done done )
    {
        std::atomic<bool> ends = false;
        std::atomic<int> running = 0;
        std::vector<std::thread> threads;
        for( int i = 0; i < count; ++i )
            threads.emplace_back(
                [&, i]( )
                {
                    work( i );
                    ++running;
                    while( !ends ) work( i );
                } );
        while( running < count ) std::this_thread::yield( );
        done( );
        ends = true;
        for( std::thread& thread : threads ) thread.join( );
    }

    std::unique_ptr<GInstance> instance;
};

bool isUniform( const GString& text )
{
    return text.find_first_not_of( text.empty( ) ? 'x' : text[0] ) == GString::npos;
}
} // namespace

TEST_F( GInstanceThreads, ReadersSeeWholeValuesOnly )
{
    std::atomic<int> broken = 0;
    const auto read = [&]( int thread )
    {
        GString bytes;
        GWString text;
        instance->get( u"Value", bytes );
        instance->get( u"VALUE", text );
        if( !isUniform( bytes ) || !isUniform( GWideToUTF8( text ) ) ) ++broken;
        if( thread == 0 && !isUniform( instance->getRaw( u"opened" ) ) ) ++broken;
        instance->isSet( u"value" );
        instance->calc( u"other" );
        instance->getTimestamp( u"value" );
        instance->length( u"queue" );
    };
    const auto write = [&]( )
    {
        for( int i = 0; i < 500; ++i )
        {
            instance->set( u"value",
                           GString( static_cast<size_t>( i * 37 % 900 ), static_cast<char>( 'a' + i % 26 ) ) );
            GString& bytes = instance->open( u"opened" );
            bytes.assign( 600, static_cast<char>( 'a' + i % 26 ) );
            for( char& byte : bytes ) byte = static_cast<char>( 'A' + i % 26 );
            instance->close( u"opened", false );
            instance->set( GConcat( u"new", i ), i );      // The tables grow ...
            if( i % 50 == 49 ) instance->clear( u"new*" ); // ... and shrink.
            instance->clear( u"value" );
        }
    };
    besides( 4, read, write );
    EXPECT_EQ( broken, 0 );
}
TEST_F( GInstanceThreads, ReaderWaitsForWhoeverHoldsOpen )
{
    for( int round = 0; round < 50; ++round )
    {
        GString& bytes = instance->open( u"a" );
        bytes = "half";
        std::atomic<bool> asks = false;
        GString seen;
        std::thread reader(
            [&]( )
            {
                asks = true;
                instance->get( u"A", seen );
            } );
        while( !asks ) std::this_thread::yield( );
        for( int i = 0; i < 20; ++i ) std::this_thread::yield( );
        EXPECT_EQ( instance->getRaw( u"a" ), "half" ); // The holder itself may call anything.
        instance->set( u"b", round );
        bytes = "whole";
        instance->close( u"a", false );
        reader.join( );
        ASSERT_EQ( seen, "whole" );
    }
}
TEST_F( GInstanceThreads, OpensNestAndTheLastCloseLetsReadersIn )
{
    instance->open( u"a" ) = "1";
    instance->open( u"b" ) = "2";
    instance->close( u"b", false );
    GString seen;
    std::thread reader( [&]( ) { instance->get( u"a", seen ); } );
    for( int i = 0; i < 20; ++i ) std::this_thread::yield( );
    instance->open( u"a" ) = "3";
    instance->close( u"a", false );
    instance->close( u"a", false );
    reader.join( );
    EXPECT_EQ( seen, "3" );
}
TEST_F( GInstanceThreads, QueuesLoseAndDoubleNothing )
{
    constexpr int ITEMS = 2000;
    std::atomic<int64_t> sum = 0;
    std::atomic<int> taken = 0;
    const auto take = [&]( int )
    {
        GString item;
        if( !instance->dequeue( u"queue", item ) ) return;
        sum += GCalc( item );
        ++taken;
    };
    const auto put = [&]( )
    {
        for( int i = 1; i <= ITEMS; ++i ) instance->enqueue( u"Queue", std::to_string( i ) );
        while( taken < ITEMS ) std::this_thread::yield( );
    };
    besides( 3, take, put );
    EXPECT_EQ( taken, ITEMS );
    EXPECT_EQ( sum, int64_t( ITEMS ) * ( ITEMS + 1 ) / 2 );
}
TEST( GReaderGate, TurnsReadersAwayWhileItIsShut )
{
    GReaderGate gate;
    GReaderGate::Slot* const inside = gate.enter( );
    ASSERT_TRUE( inside );
    std::atomic<bool> isShut = false;
    std::thread writer(
        [&]( )
        {
            gate.shut( );
            isShut = true;
        } );
    // New readers are turned away as soon as the writer waits, and it waits for the one inside.
    for( GReaderGate::Slot* other = gate.enter( ); other; other = gate.enter( ) ) GReaderGate::leave( *other );
    EXPECT_FALSE( isShut );
    GReaderGate::leave( *inside );
    writer.join( );
    EXPECT_FALSE( gate.enter( ) );
    gate.open( );
    GReaderGate::Slot* const again = gate.enter( );
    ASSERT_TRUE( again );
    GReaderGate::leave( *again );
}
