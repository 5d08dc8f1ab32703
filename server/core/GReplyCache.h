// Answers given a moment ago, by a key of the request: a repeated request is answered as the first time.
// Bounded in number and in age; the oldest leave first. Time is passed in, in microseconds.
#pragma once

#include "base/GTypes.h"

#include <deque>
#include <unordered_map>

class GReplyCache
{
public:
    GReplyCache( uint64_t lifetime, size_t maximum ) : _lifetime( lifetime ), _maximum( maximum ) {}
    // The stored answer, or null; valid until the next call.
    const GString* find( const GString& key, uint64_t now );
    void store( const GString& key, const GString& reply, uint64_t now );
    void forget( const GString& key ) { _replies.erase( key ); }
    size_t size( ) const { return _replies.size( ); }

private:
    struct Reply
    {
        GString bytes;
        uint64_t time;
    };
    void _expire( uint64_t now );

    uint64_t _lifetime;
    size_t _maximum;
    std::unordered_map<GString, Reply> _replies;
    std::deque<std::pair<uint64_t, GString>> _order;
};
