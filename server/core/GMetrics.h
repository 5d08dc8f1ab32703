// Counters and gauges of the running server, in the text form that Prometheus reads. Network thread only.
// Labels come from fixed words of the code, never from the wire, so the number of series is bounded; a series that is there
// already takes nothing from the heap.
#pragma once

#include "base/GTypes.h"

#include <algorithm>
#include <array>
#include <map>

class GMetrics
{
public:
    // One message of a role, by method and by what became of it: "answered", "dropped", "limited", "malformed", ...
    void count( std::string_view role, std::string_view method, std::string_view result, uint64_t number = 1 );
    void add( std::string_view name, uint64_t number );
    void setGauge( std::string_view name, int64_t value );
    uint64_t get( std::string_view role, std::string_view method, std::string_view result ) const;
    uint64_t getTotal( std::string_view name ) const;
    GString compose( ) const;

private:
    template <typename Text>
    using LabelsOf = std::array<Text, 3>; // Role, method, result.
    struct Less
    {
        using is_transparent = void;
        template <typename A, typename B>
        bool operator( )( const LabelsOf<A>& a, const LabelsOf<B>& b ) const
        {
            return std::lexicographical_compare( a.begin( ), a.end( ), b.begin( ), b.end( ),
                                                 []( std::string_view x, std::string_view y ) { return x < y; } );
        }
    };
    std::map<LabelsOf<GString>, uint64_t, Less> _messages;
    std::map<GString, uint64_t, std::less<>> _counters;
    std::map<GString, int64_t, std::less<>> _gauges;
};
