#include "GSkinCheck.h"

#include "base/GUtil.h"
#include "client/skin/GTemplateFactory.h"
#include "image/GImage.h"

#include <algorithm>
#include <map>
#include <set>

namespace
{
// Attributes of every element, and of elements that are no more than names.
constexpr GWStringView COMMON[] = { u"id", u"text" };

template <typename Call>
void forEachRow( Call call )
{
    for( const GElementRow& element : GTemplateFactory::getElements( ) )
        for( const GAttributeRow& row : element.getAttributes( ) ) call( row );
}

bool isElement( const GWString& name )
{
    const auto elements = GTemplateFactory::getElements( );
    return std::ranges::any_of( elements, [&]( const GElementRow& row )
                                { return !row.name.empty( ) && GCaseEquals( row.name, name ); } );
}

// What some node reads or the engine sets.
bool isAttribute( const GWString& name )
{
    bool found = std::ranges::find( COMMON, GWStringView( name ) ) != std::end( COMMON );
    forEachRow( [&]( const GAttributeRow& row ) { found |= row.name == name; } );
    for( const GElementRow& element : GTemplateFactory::getElements( ) )
        for( const GNameRow& row : element.getNames( ) ) found |= row.name == name;
    return found;
}

bool isKind( const GWString& name, GAttributeKind kind )
{
    bool found = false;
    forEachRow( [&]( const GAttributeRow& row ) { found |= row.name == name && row.kind == kind; } );
    return found;
}

template <typename Table>
bool holds( const Table& table, GWStringView text )
{
    return std::find( std::begin( table ), std::end( table ), text ) != std::end( table );
}

bool isNameCharacter( char16_t c )
{
    return ( c >= u'a' && c <= u'z' ) || ( c >= u'A' && c <= u'Z' ) || ( c >= u'0' && c <= u'9' ) || c == u'.' ||
           c == u'_' || c == u'@';
}

// Calls for every "$name" of an expression, in lower case.
template <typename Call>
void forEachName( const GWString& expression, Call call )
{
    for( size_t at = expression.find( u'$' ); at != GWString::npos; at = expression.find( u'$', at + 1 ) )
    {
        size_t end = at + 1;
        while( end < expression.size( ) && isNameCharacter( expression[end] ) ) ++end;
        if( end > at + 1 ) call( GToLower( GWStringView( expression ).substr( at + 1, end - at - 1 ) ) );
    }
}

class Checker
{
public:
    explicit Checker( const std::vector<GSkinElement>& elements ) : _elements( elements ) {}

    std::vector<GSkinFinding> run( )
    {
        _collect( );
        for( const GSkinElement& element : _elements )
        {
            _checkElement( element );
            _checkWidth( element );
            for( const auto& [name, value] : element.attributes ) _checkAttribute( element, name, value );
        }
        return std::move( _findings );
    }

private:
    template <typename... Parts>
    void _report( const GSkinElement& element, const Parts&... parts )
    {
        _findings.push_back( { element.line, GConcat( parts... ) } );
    }

    void _collect( )
    {
        for( const GSkinElement& element : _elements )
        {
            for( const auto& [name, value] : element.attributes )
            {
                forEachName( value, [&]( const GWString& used ) { _usedNames.insert( used ); } );
                // A condition reads the name that it watches.
                if( GCaseEquals( name, u"watch" ) ) _usedNames.insert( GToLower( value ) );
                const size_t built = value.find_first_of( u"{$" );
                if( built != GWString::npos && built > 1 && value[built - 1] == u'_' )
                    _prefixes.insert( GToLower( value.substr( 0, built ) ) );
                for( const GWString& step : GSplitList( value, u"/?();" ) ) _steps.insert( GToLower( step ) );
            }
        }
    }

    bool _isAddressed( const GSkinElement& element ) const
    {
        const GWString* id = element.find( u"id" );
        const GWString name = GToLower( element.name );
        return _steps.contains( name ) || ( id && _steps.contains( name + u"_" + GToLower( *id ) ) );
    }

    void _checkElement( const GSkinElement& element )
    {
        if( !isElement( element.name ) && !_isAddressed( element ) )
            _report( element, u"element <", element.name, u"> has no meaning and nothing refers to it" );
        const int parent = element.parent;
        const GWString around = parent < 0 ? GWString( ) : GToLower( _elements[static_cast<size_t>( parent )].name );
        const bool isPlaced = GCaseEquals( element.name, u"cell" ) || GCaseEquals( element.name, u"foreach" );
        if( ( around == u"row" || around == u"col" ) && !isPlaced )
            _report( element, u"<", element.name, u"> directly inside <", around,
                     u"> is never drawn: put it into a Cell" );
    }

    void _checkAttribute( const GSkinElement& element, const GWString& name, const GWString& value )
    {
        if( !isAttribute( name ) && !_usedNames.contains( name ) && !_isDynamic( name ) )
            _report( element, u"attribute '", name, u"' of <", element.name,
                     u"> is read by no node and no expression" );
        if( isKind( name, GAttributeKind::image ) && !GCaseEquals( element.name, u"copy" ) )
            _checkSource( element, value );
        if( isKind( name, GAttributeKind::command ) ) _checkCommand( element, name, value );
        if( GCaseEquals( element.name, u"copy" ) && name == u"src" ) _checkPath( element, value );
        forEachName( value, [&]( const GWString& used ) { _checkVisible( element, used ); } );
    }

    // "e_$list" builds names at run time: what begins like such a prefix may be meant by it.
    bool _isDynamic( const GWString& name ) const
    {
        return std::any_of( _prefixes.begin( ), _prefixes.end( ),
                            [&]( const GWString& prefix ) { return name.starts_with( prefix ); } );
    }

    void _checkSource( const GSkinElement& element, const GWString& value )
    {
        const size_t bracket = value.find( u'(' );
        const GWString file = value.substr( 0, bracket );
        if( file.find( u'$' ) != GWString::npos || file.find( u'.' ) == GWString::npos ) return;
        const GImageFormat* format = _load( file );
        if( !format )
        {
            _report( element, u"file '", file, u"' is missing or no picture" );
            return;
        }
        if( bracket == GWString::npos ) return;
        GStringVector numbers;
        for( const GWString& number : GSplitList( value.substr( bracket ), u"(,)" ) ) numbers.push_back( number );
        if( numbers.size( ) != 4 )
        {
            _report( element, u"'", value, u"' needs four numbers" );
            return;
        }
        const auto at = [&]( size_t i ) { return static_cast<int>( GCalc( numbers[i] ) ); };
        const GRect rect{ at( 0 ), at( 1 ), at( 2 ), at( 3 ) };
        if( GRectEmpty( rect ) || !GRectWithin( rect, format->width, format->height ) )
            _report( element, u"'", value, u"' lies outside the picture of ", format->width, u" by ", format->height );
    }

    const GImageFormat* _load( const GWString& file )
    {
        const auto known = _pictures.find( file );
        if( known != _pictures.end( ) ) return known->second.width ? &known->second : nullptr;
        GImageFormat& format = _pictures[file];
        GString bytes;
        GString pixels;
        if( GFileLoad( file, bytes ) && GImageLoad( bytes.data( ), static_cast<int>( bytes.size( ) ), format, pixels ) )
            return &format;
        format = { };
        return nullptr;
    }

    void _checkCommand( const GSkinElement& element, const GWString& name, const GWString& value )
    {
        if( value.empty( ) || value.front( ) == u'$' ) return;
        if( value.find( u'(' ) == GWString::npos )
        {
            _report( element, u"command '", name, u"' of <", element.name, u"> has no parentheses and does nothing" );
            return;
        }
        for( const GWString& piece : GSplitList( value, u"();," ) )
            if( piece.starts_with( u"/skin/" ) ) _checkPath( element, piece.substr( 0, piece.find( u'?' ) ) );
    }

    void _checkPath( const GSkinElement& element, const GWString& path )
    {
        if( path.find( u'$' ) != GWString::npos || !path.starts_with( u"/skin/" ) ) return;
        int at = 0;
        bool first = true;
        for( const GWString& step : GSplitList( path, u"/" ) )
        {
            // Below a copy or a repetition the tree grows at run time.
            if( !first && at >= 0 ) at = _findChild( at, step );
            if( at == GROWS ) return;
            first = false;
        }
        if( at < 0 ) _report( element, u"path '", path, u"' leads nowhere" );
    }

    static constexpr int NOWHERE = -1;
    static constexpr int GROWS = -2;

    int _findChild( int parent, const GWString& step ) const
    {
        const GWString& around = _elements[static_cast<size_t>( parent )].name;
        if( GCaseEquals( around, u"copy" ) || GCaseEquals( around, u"foreach" ) ) return GROWS;
        for( size_t i = 0; i < _elements.size( ); ++i )
        {
            if( _elements[i].parent != parent ) continue;
            const GWString* id = _elements[i].find( u"id" );
            const GWString full = id && !id->empty( ) ? _elements[i].name + u"_" + *id : _elements[i].name;
            if( GCaseEquals( full, step ) ) return static_cast<int>( i );
        }
        return NOWHERE;
    }

    // Texts have a height of their own but no width: a cell that is neither fixed, stretched nor growing gives them none.
    void _checkWidth( const GSkinElement& element )
    {
        static constexpr GWStringView WIDTHLESS[] = { u"text", u"edit", u"hotkey", u"list", u"table" };
        if( !holds( WIDTHLESS, GToLower( element.name ) ) || element.parent < 0 ) return;
        const GSkinElement& cell = _elements[static_cast<size_t>( element.parent )];
        if( !GCaseEquals( cell.name, u"cell" ) ) return;
        const GWString* extra = cell.find( u"extra" );
        const GWString* align = cell.find( u"align" );
        const bool grows = extra && *extra != u"0" && !extra->empty( );
        const bool stretches = align && ( GCaseEquals( *align, u"stretch" ) || align->find( u'$' ) != GWString::npos );
        if( grows || stretches || cell.find( u"fixedwidth" ) || _hasWideSibling( element ) ) return;
        _report( element, u"<", element.name,
                 u"> has no width: give its Cell an extra, a fixedwidth or align=\"stretch\"" );
    }

    bool _hasWideSibling( const GSkinElement& element ) const
    {
        return std::any_of( _elements.begin( ), _elements.end( ),
                            [&]( const GSkinElement& other ) {
                                return other.parent == element.parent &&
                                       ( other.find( u"src" ) || GCaseEquals( other.name, u"row" ) );
                            } );
    }

    // A window that updates by itself sees its own subtree and the blackboard, not what stands around it.
    void _checkVisible( const GSkinElement& element, const GWString& used )
    {
        bool insideWindow = false;
        const GSkinElement* at = &element;
        for( ; at; at = at->parent < 0 ? nullptr : &_elements[static_cast<size_t>( at->parent )] )
        {
            if( insideWindow && at->find( used ) )
            {
                _report( element, u"'$", used, u"' is set on <", at->name, u"> around the window (line ", at->line,
                         u"), which the window does not see when it updates by itself" );
                return;
            }
            // First-update attributes of the window itself are read from the full pass.
            if( at != &element && at->find( used ) ) return;
            if( GCaseEquals( at->name, u"window" ) )
            {
                if( at == &element ) return;
                insideWindow = true;
            }
        }
    }

    const std::vector<GSkinElement>& _elements;
    std::vector<GSkinFinding> _findings;
    std::set<GWString, std::less<>> _usedNames;
    std::set<GWString, std::less<>> _steps;
    std::set<GWString, std::less<>> _prefixes; // Of names that expressions build, as "e_".
    std::map<GWString, GImageFormat> _pictures;
};
} // namespace

std::vector<GSkinFinding> GSkinCheck( const std::vector<GSkinElement>& elements )
{
    return Checker( elements ).run( );
}
