// The listeners of one tap under a mutex that is held while they are called: a listener that has unsubscribed gets no further call,
// and unsubscribing waits for a call that is running. A listener must not come and go from within its own call. Any thread.
#pragma once

#include "base/GPortable.h"

#include <algorithm>
#include <list>
#include <mutex>

template <typename Listener>
class GCaptureListeners
{
public:
    void add( Listener* listener )
    {
        GPRECONDITION( listener );
        const std::scoped_lock lock( _mutex );
        _listenerList.push_back( listener );
    }
    // The listener must be there.
    void remove( Listener* listener )
    {
        const std::scoped_lock lock( _mutex );
        const auto it = std::find( _listenerList.begin( ), _listenerList.end( ), listener );
        GASSERT( it != _listenerList.end( ) );
        _listenerList.erase( it );
    }
    bool empty( )
    {
        const std::scoped_lock lock( _mutex );
        return _listenerList.empty( );
    }
    template <typename Call>
    void each( Call call )
    {
        const std::scoped_lock lock( _mutex );
        for( Listener* listener : _listenerList ) call( *listener );
    }

private:
    std::mutex _mutex;
    std::list<Listener*> _listenerList;
};
