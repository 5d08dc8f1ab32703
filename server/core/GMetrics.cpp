#include "server/core/GMetrics.h"

namespace
{
constexpr std::string_view MESSAGES = "velmora_messages_total";

GString seriesOf( std::string_view role, std::string_view method, std::string_view result )
{
    GString series( MESSAGES );
    series.append( "{role=\"" ).append( role ).append( "\",method=\"" ).append( method );
    series.append( "\",result=\"" ).append( result ).append( "\"}" );
    return series;
}
uint64_t valueOf( const std::map<GString, uint64_t, std::less<>>& counters, std::string_view series )
{
    const auto found = counters.find( series );
    return found == counters.end( ) ? 0 : found->second;
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
    add( seriesOf( role, method, result ), number );
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
    _gauges.insert_or_assign( GString( name ), value );
}
uint64_t GMetrics::get( std::string_view role, std::string_view method, std::string_view result ) const
{
    return valueOf( _counters, seriesOf( role, method, result ) );
}
uint64_t GMetrics::getTotal( std::string_view name ) const
{
    return valueOf( _counters, name );
}
GString GMetrics::compose( ) const
{
    GString out;
    composeAll( out, _counters, "counter" );
    composeAll( out, _gauges, "gauge" );
    return out;
}
