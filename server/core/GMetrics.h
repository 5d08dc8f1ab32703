// Counters and gauges of the running server, in the text form that Prometheus reads. Network thread only.
// Labels come from fixed words of the code, never from the wire, so the number of series is bounded; a series that is there
// already takes nothing from the heap.
#pragma once

#include "base/GTypes.h"

#include <map>
#include <tuple>

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
    using Labels = std::tuple<GString, GString, GString>; // Role, method, result.
    std::map<Labels, uint64_t, std::less<>> _messages;
    std::map<GString, uint64_t, std::less<>> _counters;
    std::map<GString, int64_t, std::less<>> _gauges;
};
