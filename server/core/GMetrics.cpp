#include "server/core/GMetrics.h"

namespace
{
constexpr std::string_view MESSAGES = "velmora_messages_total";

GString seriesOf( const std::array<GString, 3>& labels )
{
    const auto& [role, method, result] = labels;
    GString series( MESSAGES );
    series.append( "{role=\"" ).append( role ).append( "\",method=\"" ).append( method );
    series.append( "\",result=\"" ).append( result ).append( "\"}" );
    return series;
}
template <typename Map>
void composeAll( GString& out, const Map& map, std::string_view kind )
{
    std::string_view last;
    for( const auto& [series, value] : map )
    {
        const std::string_view name = std::string_view( series ).substr( 0, series.find( '{' ) );
        if( name != last ) out.append( "# TYPE " ).append( name ).append( " " ).append( kind ).append( "\n" );
        last = name;
        out.append( series ).append( " " ).append( std::to_string( value ) ).append( "\n" );
    }
}
} // namespace

void GMetrics::count( std::string_view role, std::string_view method, std::string_view result, uint64_t number )
{
    const auto found = _messages.find( LabelsOf<std::string_view>{ role, method, result } );
    if( found == _messages.end( ) )
        _messages.emplace( LabelsOf<GString>{ GString( role ), GString( method ), GString( result ) }, number );
    else
        found->second += number;
}
void GMetrics::add( std::string_view name, uint64_t number )
{
    const auto found = _counters.find( name );
    if( found == _counters.end( ) )
        _counters.emplace( name, number );
    else
        found->second += number;
}
void GMetrics::setGauge( std::string_view name, int64_t value )
{
    const auto found = _gauges.find( name );
    if( found == _gauges.end( ) )
        _gauges.emplace( name, value );
    else
        found->second = value;
}
uint64_t GMetrics::get( std::string_view role, std::string_view method, std::string_view result ) const
{
    const auto found = _messages.find( LabelsOf<std::string_view>{ role, method, result } );
    return found == _messages.end( ) ? 0 : found->second;
}
uint64_t GMetrics::getTotal( std::string_view name ) const
{
    const auto found = _counters.find( name );
    return found == _counters.end( ) ? 0 : found->second;
}
GString GMetrics::compose( ) const
{
    GString out;
    std::map<GString, uint64_t, std::less<>> counters = _counters;
    for( const auto& [labels, value] : _messages ) counters.emplace( seriesOf( labels ), value );
    composeAll( out, counters, "counter" );
    composeAll( out, _gauges, "gauge" );
    return out;
}
