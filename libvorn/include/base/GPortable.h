// The portable half of the log and of assertions: hooks that the platform fills, log lines, assertion macros, call tracing.
// Every line of the system goes through GLog; calling it or GAbort before the hooks are set does nothing.
#pragma once

#include "base/GTypes.h"

#include <concepts>
#include <cstddef>

// ---- Hooks. Set once by GDebugOpen; the third is spare. Tests may replace them.
struct GPortableHooks
{
    void ( *log )( const GWString& line ) = nullptr;
    void ( *spare )( ) = nullptr;
    void ( *crash )( ) = nullptr;
};
GPortableHooks& GPortableGetHooks( );

// Writes one line that already ends with a newline. Any thread.
void GLog( const GWString& line );
// Calls the crash handler, which ends the process.
void GAbort( );
// At most 52 letters are used; each letter is one category, 'x' stands for all lower-case and 'X' for all upper-case ones.
void GLogSetFilter( const GString& letters );
GString GLogGetFilter( );
bool GLogTest( char letter );

// Set by the crash handler alone: stops every thread loop at its next round and makes network calls fail at once.
bool GIsShuttingDown( );
void GSetShuttingDown( bool shuttingDown );

// ---- Composing text. Accepts wide and narrow (UTF-8) text, characters and numbers.
void GAppendText( GWString& out, GWStringView text );
void GAppendText( GWString& out, std::string_view utf8 );
void GAppendNumber( GWString& out, int64_t value );
void GAppendNumber( GWString& out, uint64_t value );
void GAppendNumber( GWString& out, double value );

template <typename T>
void GAppendOne( GWString& out, const T& value )
{
    if constexpr( std::is_same_v<T, bool> )
        out += value ? u'1' : u'0';
    else if constexpr( std::is_same_v<T, char16_t> )
        out += value;
    else if constexpr( std::is_same_v<T, char> )
        out += static_cast<char16_t>( static_cast<unsigned char>( value ) );
    else if constexpr( std::is_convertible_v<const T&, GWStringView> )
        GAppendText( out, GWStringView( value ) );
    else if constexpr( std::is_convertible_v<const T&, std::string_view> )
        GAppendText( out, std::string_view( value ) );
    else if constexpr( std::is_floating_point_v<T> )
        GAppendNumber( out, static_cast<double>( value ) );
    else if constexpr( std::is_enum_v<T> )
        GAppendNumber( out, static_cast<int64_t>( value ) );
    else if constexpr( std::is_unsigned_v<T> )
        GAppendNumber( out, static_cast<uint64_t>( value ) );
    else
        GAppendNumber( out, static_cast<int64_t>( value ) );
}

// GConcat( u"port ", 5, u" of '", host, u"'" )
template <typename... Parts>
GWString GConcat( const Parts&... parts )
{
    GWString out;
    ( GAppendOne( out, parts ), ... );
    return out;
}

// Writes "<file>(<line>): [<function>] text\n".
void GLogLine( const char* file, int line, const char* function, const GWString& text );

// GLOG( u"WARNING Could not bind port ", host, u", closing." ): always written.
#define GLOG( ... ) GLogLine( __FILE__, __LINE__, __FUNCTION__, GConcat( __VA_ARGS__ ) )
// GLOGIF( 'k', u"..." ): written, and composed, only when the category is in the filter.
#define GLOGIF( letter, ... )                                                                                          \
    do                                                                                                                 \
    {                                                                                                                  \
        if( GLogTest( letter ) ) GLOG( __VA_ARGS__ );                                                                  \
    } while( false )
// GLOGPLAIN( u"Version: Velmora/764" ): a status line without the prefix.
#define GLOGPLAIN( ... ) GLog( GConcat( __VA_ARGS__, u"\n" ) )

// ---- Assertions. The text is the spelling of the expression, so each macro stringifies at the outermost level; the _TEXT forms
// take the spelling explicitly. GPRECONDITION and GASSERT abort; GVERIFY logs and goes on, and always evaluates its argument.
void GAssertFailed( const char* file, int line, const char* function, const char* kind, const char* expression,
                    bool fatal );

#define GPRECONDITION( expr ) GPRECONDITION_TEXT( expr, #expr )
#define GPRECONDITION_TEXT( expr, text )                                                                               \
    ( ( expr )                                                                                                         \
          ? (void)0                                                                                                    \
          : GAssertFailed( __FILE__, __LINE__, __FUNCTION__, "ERROR: Precondition failed, aborting. (", text, true ) )
#define GASSERT( expr ) GASSERT_TEXT( expr, #expr )
#define GASSERT_TEXT( expr, text )                                                                                     \
    ( ( expr )                                                                                                         \
          ? (void)0                                                                                                    \
          : GAssertFailed( __FILE__, __LINE__, __FUNCTION__, "ERROR: Assertion failed, aborting. (", text, true ) )
// An expression that yields whether the check held.
#define GVERIFY( expr ) GVERIFY_TEXT( expr, #expr )
#define GVERIFY_TEXT( expr, text )                                                                                     \
    ( ( expr ) ? true                                                                                                  \
               : ( GAssertFailed( __FILE__, __LINE__, __FUNCTION__, "WARNING: Assertion failed. (", text, false ),     \
                   false ) )

// True for a pointer that is neither null nor one of the allocator's fill patterns (the pointer itself, or its first word).
bool GIsValidPointer( const void* pointer );
#define GVALIDPTR( p )                                                                                                 \
    GASSERT_TEXT( GIsValidPointer( p ), "(" #p ") && (((unsigned long)(" #p                                            \
                                        ")) != 0xCDCDCDCD) && ((*(unsigned long*)(" #p ")) != 0xFEEEFEEE)" )

#define GMAPCONTAINS( map, key ) ( ( map ).find( key ) != ( map ).end( ) )
#define GWITHIN( low, value, high ) ( ( low ) <= ( value ) && ( value ) <= ( high ) )

// ---- Call tracing. One stack a thread; a returned call's frame stays until the next call overwrites it, so a dump shows it too.
// All four strings must be constants: only the pointers are kept.
void GCallEnter( const char* file, const char* function, int line, const char* comment );
void GCallLeave( );
// Logs that thread's stack; unknown threads log nothing. Lock order: global map, then the stack.
void GCallDump( uint64_t threadId );
// Switches ENTERING and LEAVING lines for the calling thread. A call that was entered before is timed from the switch on.
void GCallSetTrace( bool trace );
// Run by the platform at the end of a thread. Logs a warning for an empty id or stack and changes nothing then.
void _GCallDestructor( uint64_t threadId );

class GCallScope
{
public:
    GCallScope( const char* file, const char* function, int line, const char* comment )
    {
        GCallEnter( file, function, line, comment );
    }
    ~GCallScope( ) { GCallLeave( ); }
    GCallScope( const GCallScope& ) = delete;
    GCallScope& operator=( const GCallScope& ) = delete;
};
// GCALL( GInstance ) in a method, GCALL( function ) in a free function: the first statement of every traced function.
#define GCALL( comment ) const GCallScope callScope_( __FILE__, __FUNCTION__, __LINE__, #comment )
