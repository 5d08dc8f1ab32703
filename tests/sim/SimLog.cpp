#include "sim/SimLog.h"

#include "base/GUtil.h"
#include "platform/GSimClock.h"
#include "platform/GTime.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <mutex>

namespace
{
constexpr size_t MAX_SURPRISES = 50;
SimLog* current_ = nullptr;
std::mutex mutex_;

bool isEchoed( )
{
    const char* text = std::getenv( "VELMORA_SIM_ECHO" );
    return text && *text;
}

void writeLine( const GWString& line )
{
    const std::scoped_lock lock( mutex_ );
    if( current_ ) current_->add( GWideToUTF8( line ) );
}
void crash( )
{
    std::cerr << "the program under simulation has failed\n";
    std::abort( );
}
} // namespace

SimLog::SimLog( ) : _before( GPortableGetHooks( ) ), _echo( isEchoed( ) )
{
    current_ = this;
    GPortableGetHooks( ).log = writeLine;
    GPortableGetHooks( ).crash = crash;
    if( _echo ) GLogSetFilter( "x" );
}

SimLog::~SimLog( )
{
    const std::scoped_lock lock( mutex_ );
    GPortableGetHooks( ) = _before;
    current_ = nullptr;
}

void SimLog::add( const GString& line )
{
    const bool fatal = line.find( "aborting" ) != GString::npos;
    const bool bad = line.find( "WARNING" ) != GString::npos || line.find( "WARING" ) != GString::npos ||
                     line.find( "ERROR" ) != GString::npos;
    if( !bad && !_echo ) return;
    const uint64_t time = GTimeGetTime( ) - GSimClock::START;
    GString text = std::to_string( time / 1000000 ) + "." + std::to_string( 1000000 + time % 1000000 ).substr( 1, 3 );
    text += " " + _program + ": " + line;
    if( _echo || fatal ) std::cerr << text;
    if( !bad || _surprises.size( ) == MAX_SURPRISES ) return;
    const auto isIn = [&]( const GString& allowed ) { return line.find( allowed ) != GString::npos; };
    if( std::none_of( _allowed.begin( ), _allowed.end( ), isIn ) ) _surprises.push_back( text );
}
