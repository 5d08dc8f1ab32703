// A connection to the X server that capture has for itself: it works on any one thread at a time, beside the toolkit's, and can be
// made again when the server has gone. Nothing here waits for a server that has died.
#pragma once

#include <bitset>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

struct GScreenFree
{
    void operator( )( void* memory ) const { std::free( memory ); }
};
// What the server sent; null when it refused or went away.
template <typename T>
using GScreenReply = std::unique_ptr<T, GScreenFree>;

enum GScreenAtom
{
    GATOM_CLIENT_LIST,
    GATOM_SUPPORTED,
    GATOM_ACTIVE_WINDOW,
    GATOM_WM_STATE,
    GATOM_NET_WM_NAME,
    GATOM_UTF8_STRING,
    GATOM_WINDOW_TYPE,
    GATOM_TYPE_DESKTOP,
    GATOM_TYPE_DOCK,
    GATOM_COUNT
};

class GScreenConnection
{
public:
    GScreenConnection( ) = default;
    ~GScreenConnection( ) { close( ); }
    GScreenConnection( const GScreenConnection& ) = delete;
    GScreenConnection& operator=( const GScreenConnection& ) = delete;

    // Connects when there is no connection or the last one has died. False without a display.
    bool open( );
    void close( );
    bool isAlive( ) const;
    // Another number for each connection made: what the server held for an earlier one is gone.
    unsigned getGeneration( ) const { return _generation; }

    // Runs `work` on an open connection, and once more on a new one when the server turns out to have been restarted since the last
    // time. What `work` returned, or false without a display.
    template <typename Work>
    bool run( Work work )
    {
        for( int attempt = 0; attempt < 2 && open( ); ++attempt )
        {
            const bool good = work( );
            dropEvents( );
            if( isAlive( ) ) return good;
        }
        return false;
    }

    // Valid after open has succeeded, until close.
    xcb_connection_t* get( ) const { return _connection; }
    const xcb_screen_t& getScreen( ) const { return *_screen; }
    xcb_window_t getRoot( ) const { return _screen->root; }
    xcb_atom_t getAtom( GScreenAtom atom ) const { return _atoms[atom]; }
    // Whether an extension may be used; a request of one that is not there would end the connection.
    bool has( xcb_extension_t& extension ) const;

    // Takes the events and late errors that came along with replies, so that they do not pile up; which kinds they were is noted.
    void dropEvents( );
    // The same with all that the server has sent by now. Does not wait.
    void readEvents( );
    // Whether an event of this type has come since the last such question.
    bool takeSeen( uint8_t type );
    // Counts the new sizes of the desktop that events have told. One that came before a reply is counted once events are taken.
    unsigned getSizeChanges( ) const { return _sizeChanges; }

private:
    bool _readAtoms( );
    void _note( const xcb_generic_event_t& event );

    xcb_connection_t* _connection = nullptr;
    const xcb_screen_t* _screen = nullptr;
    xcb_atom_t _atoms[GATOM_COUNT] = { };
    unsigned _generation = 0;
    unsigned _sizeChanges = 0;
    std::bitset<128> _seen; // Types of events.
};
