#include "support/TestLog.h"

#include "base/GPortable.h"
#include "base/GUtil.h"

#include <gtest/gtest.h>

#include <iostream>
#include <mutex>

namespace
{
struct Expectation
{
    std::string text;
    bool required;
    int seen;
};
std::mutex mutex_;
std::vector<std::string> lines_;
std::vector<Expectation> expectations_;

void writeLine( const GWString& line )
{
    const std::scoped_lock lock( mutex_ );
    lines_.push_back( GWideToUTF8( line ) );
}
void crash( )
{
    for( const std::string& line : TestLog::lines( ) ) std::cerr << line;
    std::abort( );
}

class Check : public testing::EmptyTestEventListener
{
    void OnTestStart( const testing::TestInfo& ) override
    {
        TestLog::clear( );
        const std::scoped_lock lock( mutex_ );
        expectations_.clear( );
    }
    void OnTestEnd( const testing::TestInfo& ) override
    {
        const std::scoped_lock lock( mutex_ );
        for( const std::string& line : lines_ )
        {
            bool announced = false;
            for( Expectation& expectation : expectations_ )
                if( line.find( expectation.text ) != std::string::npos )
                {
                    announced = true;
                    ++expectation.seen;
                }
            // Objects of a test may live on its stack.
            if( line.find( "Object not tracked on destruction" ) != std::string::npos ) continue;
            if( !announced &&
                ( line.find( "WARNING" ) != std::string::npos || line.find( "ERROR" ) != std::string::npos ) )
                ADD_FAILURE( ) << "unannounced log line: " << line;
        }
        for( const Expectation& expectation : expectations_ )
            if( expectation.required && !expectation.seen ) ADD_FAILURE( ) << "no log line held: " << expectation.text;
    }
};
} // namespace

namespace TestLog
{
void install( )
{
    GPortableGetHooks( ).log = writeLine;
    GPortableGetHooks( ).crash = crash;
    testing::UnitTest::GetInstance( )->listeners( ).Append( new Check );
}
void expect( const std::string& text )
{
    const std::scoped_lock lock( mutex_ );
    expectations_.push_back( { text, true, 0 } );
}
void allow( const std::string& text )
{
    const std::scoped_lock lock( mutex_ );
    expectations_.push_back( { text, false, 0 } );
}
std::vector<std::string> lines( )
{
    const std::scoped_lock lock( mutex_ );
    return lines_;
}
bool contains( const std::string& text )
{
    return count( text ) > 0;
}
int count( const std::string& text )
{
    const std::scoped_lock lock( mutex_ );
    int found = 0;
    for( const std::string& line : lines_ )
        if( line.find( text ) != std::string::npos ) ++found;
    return found;
}
void clear( )
{
    const std::scoped_lock lock( mutex_ );
    lines_.clear( );
}
} // namespace TestLog
