#include "base/GPortable.h"

#include "base/GUtil.h"

#include <array>
#include <atomic>
#include <charconv>
#include <mutex>

GPortableHooks& GPortableGetHooks( )
{
    static GPortableHooks hooks;
    return hooks;
}

void GLog( const GWString& line )
{
    if( GPortableGetHooks( ).log ) GPortableGetHooks( ).log( line );
}
void GAbort( )
{
    if( GPortableGetHooks( ).crash ) GPortableGetHooks( ).crash( );
}

// ---- Filter. The letters are spread into one bit an ASCII character when they are set, so that a test is one load.
namespace
{
constexpr size_t MAX_FILTER_LETTERS = 52;

std::array<std::atomic<uint64_t>, 2> filterBits_;
std::mutex filterMutex_;
GString filterLetters_;
std::atomic<bool> shuttingDown_ = false;

bool isLower( char letter )
{
    return letter >= 'a' && letter <= 'z';
}
bool isUpper( char letter )
{
    return letter >= 'A' && letter <= 'Z';
}
bool filterHolds( const GString& letters, char wanted )
{
    for( const char letter : letters )
        if( letter == wanted || ( letter == 'x' && isLower( wanted ) ) || ( letter == 'X' && isUpper( wanted ) ) )
            return true;
    return false;
}
} // namespace

void GLogSetFilter( const GString& letters )
{
    const std::scoped_lock lock( filterMutex_ );
    filterLetters_ = letters.substr( 0, MAX_FILTER_LETTERS );
    filterLetters_.resize( std::min( filterLetters_.size( ), filterLetters_.find( '\0' ) ) );
    std::array<uint64_t, 2> bits = { };
    for( unsigned letter = 1; letter < 128; ++letter )
        if( filterHolds( filterLetters_, static_cast<char>( letter ) ) )
            bits[letter / 64] |= uint64_t( 1 ) << letter % 64;
    filterBits_[0].store( bits[0], std::memory_order_relaxed );
    filterBits_[1].store( bits[1], std::memory_order_relaxed );
}
GString GLogGetFilter( )
{
    const std::scoped_lock lock( filterMutex_ );
    return filterLetters_;
}
bool GLogTest( char letter )
{
    const auto number = static_cast<unsigned char>( letter );
    return number < 128 && ( filterBits_[number / 64].load( std::memory_order_relaxed ) >> number % 64 & 1 );
}

bool GIsShuttingDown( )
{
    return shuttingDown_.load( std::memory_order_relaxed );
}
void GSetShuttingDown( bool shuttingDown )
{
    shuttingDown_.store( shuttingDown, std::memory_order_relaxed );
}

// ---- Composing text. Numbers are written without the locale, which a toolkit may have changed.
namespace
{
template <typename... Arguments>
void appendChars( GWString& out, Arguments... arguments )
{
    char text[64];
    const std::to_chars_result result = std::to_chars( text, text + sizeof( text ), arguments... );
    out.append( text, result.ptr );
}
} // namespace

void GAppendText( GWString& out, GWStringView text )
{
    out += text;
}
void GAppendText( GWString& out, std::string_view utf8 )
{
    out += GUTF8ToWide( utf8 );
}
void GAppendNumber( GWString& out, int64_t value )
{
    appendChars( out, value );
}
void GAppendNumber( GWString& out, uint64_t value )
{
    appendChars( out, value );
}
void GAppendNumber( GWString& out, double value )
{
    appendChars( out, value, std::chars_format::general, 6 );
}

void GLogLine( const char* file, int line, const char* function, const GWString& text )
{
    GLog( GConcat( file, u"(", line, u"): [", function, u"] ", text, u"\n" ) );
}

void GAssertFailed( const char* file, int line, const char* function, const char* kind, const char* expression,
                    bool fatal )
{
    GLogLine( file, line, function, GConcat( kind, expression, u")" ) );
    if( fatal ) GAbort( );
}

bool GIsValidPointer( const void* pointer )
{
    constexpr uintptr_t UNINITIALISED = 0xCDCDCDCD;
    constexpr uint32_t FREED = 0xFEEEFEEE;
    if( !pointer || reinterpret_cast<uintptr_t>( pointer ) == UNINITIALISED ) return false;
    uint32_t first;
    std::char_traits<char>::copy( reinterpret_cast<char*>( &first ), static_cast<const char*>( pointer ),
                                  sizeof( first ) );
    return first != FREED;
}
