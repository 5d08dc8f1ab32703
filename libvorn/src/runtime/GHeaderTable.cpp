#include "runtime/GHeaderTable.h"

#include <algorithm>
#include <cstddef>
#include <utility>

GHeaderTable::GHeaderTable( const GHeaderTable& other )
{
    *this = other;
}
GHeaderTable::GHeaderTable( GHeaderTable&& other ) noexcept
{
    *this = std::move( other );
}
GHeaderTable& GHeaderTable::operator=( const GHeaderTable& other )
{
    if( this == &other ) return *this;
    if( _text.size( ) < other._used ) _text.resize( other._used );
    std::copy_n( other._text.begin( ), other._used, _text.begin( ) );
    _used = other._used;
    _records = other._records;
    return *this;
}
GHeaderTable& GHeaderTable::operator=( GHeaderTable&& other ) noexcept
{
    _text.swap( other._text );
    _records.swap( other._records );
    std::swap( _used, other._used );
    if( this != &other ) other.clear( );
    return *this;
}

GHeaderTable::Header GHeaderTable::at( size_t index ) const
{
    const Record& record = _records[index];
    return { _name( record ), { _text.data( ) + record.value, record.valueUnits } };
}

size_t GHeaderTable::_lowerBound( GWStringView name ) const
{
    const auto found =
        std::lower_bound( _records.begin( ), _records.end( ), name,
                          [this]( const Record& record, GWStringView wanted ) { return _name( record ) < wanted; } );
    return static_cast<size_t>( found - _records.begin( ) );
}
bool GHeaderTable::_holds( size_t index, GWStringView name ) const
{
    return index < _records.size( ) && _name( _records[index] ) == name;
}
bool GHeaderTable::contains( GWStringView name ) const
{
    return _holds( _lowerBound( name ), name );
}
GWStringView GHeaderTable::get( GWStringView name ) const
{
    const size_t index = _lowerBound( name );
    return _holds( index, name ) ? at( index ).value : GWStringView( );
}

// What replaced values have left behind is dropped before the storage grows.
void GHeaderTable::_compact( size_t units )
{
    size_t live = 0;
    for( const Record& record : _records ) live += record.nameUnits + record.valueUnits;
    std::vector<char16_t> text( std::max( { _text.size( ), ( live + units ) * 2, size_t( 64 ) } ) );
    size_t used = 0;
    const auto move = [&]( size_t& begin, size_t length )
    {
        std::copy_n( _text.begin( ) + static_cast<ptrdiff_t>( begin ), length,
                     text.begin( ) + static_cast<ptrdiff_t>( used ) );
        begin = used;
        used += length;
    };
    for( Record& record : _records )
    {
        move( record.begin, record.nameUnits );
        move( record.value, record.valueUnits );
    }
    _text = std::move( text );
    _used = used;
}

size_t GHeaderTable::_write( GWStringView text )
{
    const size_t begin = _used;
    std::char_traits<char16_t>::copy( _text.data( ) + begin, text.data( ), text.size( ) );
    _used += text.size( );
    return begin;
}

void GHeaderTable::set( GWStringView name, GWStringView value )
{
    size_t index = _lowerBound( name );
    const bool isThere = _holds( index, name );
    if( isThere && value.size( ) <= _records[index].valueUnits )
    {
        std::char_traits<char16_t>::move( _text.data( ) + _records[index].value, value.data( ), value.size( ) );
        _records[index].valueUnits = value.size( );
        return;
    }
    const size_t wanted = value.size( ) + ( isThere ? 0 : name.size( ) );
    if( _text.size( ) - _used < wanted )
    {
        // The views may be of this table, whose storage is about to be replaced.
        const GWString ownName( name );
        const GWString ownValue( value );
        _compact( wanted );
        set( ownName, ownValue );
        return;
    }
    if( !isThere )
    {
        const Record record = { _write( name ), name.size( ), 0, 0 };
        _records.insert( _records.begin( ) + static_cast<ptrdiff_t>( index ), record );
    }
    _records[index].value = _write( value );
    _records[index].valueUnits = value.size( );
}

bool GHeaderTable::erase( GWStringView name )
{
    const size_t index = _lowerBound( name );
    if( !_holds( index, name ) ) return false;
    _records.erase( _records.begin( ) + static_cast<ptrdiff_t>( index ) );
    return true;
}

void GHeaderTable::clear( )
{
    _records.clear( );
    _used = 0;
}

char16_t* GHeaderTable::room( size_t units )
{
    if( _text.size( ) - _used < units ) _text.resize( std::max( _text.size( ) * 2, _used + units ) );
    return _text.data( ) + _used;
}

void GHeaderTable::append( size_t nameUnits, size_t valueUnits )
{
    const size_t begin = _used - nameUnits - valueUnits;
    _records.push_back( { begin, nameUnits, begin + nameUnits, valueUnits } );
}

bool GHeaderTable::sort( )
{
    const auto isBefore = [this]( const Record& a, const Record& b ) { return _name( a ) < _name( b ); };
    bool inOrder = true;
    for( size_t i = 1; i < _records.size( ) && inOrder; ++i ) inOrder = isBefore( _records[i - 1], _records[i] );
    if( inOrder ) return true;
    // Of equal names the later one stands in front: it was written behind the other.
    std::sort( _records.begin( ), _records.end( ),
               [this]( const Record& a, const Record& b )
               {
                   const int order = _name( a ).compare( _name( b ) );
                   return order < 0 || ( order == 0 && a.begin > b.begin );
               } );
    const auto isSame = [this]( const Record& a, const Record& b ) { return _name( a ) == _name( b ); };
    _records.erase( std::unique( _records.begin( ), _records.end( ), isSame ), _records.end( ) );
    return false;
}
