#include "GSkinCheck.h"

#include "GSkinCheckCommand.h"
#include "GSkinCheckText.h"

#include "base/GUtil.h"
#include "client/skin/GSkinValues.h"
#include "client/skin/GTemplateFactory.h"
#include "image/GImage.h"

#include <algorithm>
#include <map>
#include <set>

namespace
{
constexpr GWStringView ID = u"id";
// Windows look for it on what stands in them.
constexpr GWStringView AUTOFOCUS = u"autofocus";

template <typename Table>
bool holds( const Table& table, GWStringView text )
{
    return std::find( std::begin( table ), std::end( table ), text ) != std::end( table );
}

// Null for a name that has no meaning of its own.
const GElementRow* findElement( GWStringView name )
{
    for( const GElementRow& row : GTemplateFactory::getElements( ) )
        if( !row.name.empty( ) && GCaseEquals( row.name, name ) ) return &row;
    return nullptr;
}

const GAttributeRow* findAttribute( const GElementRow* element, GWStringView name )
{
    if( !element ) return nullptr;
    const GAttributeTable table = element->getAttributes( );
    const auto found = std::ranges::find( table, name, &GAttributeRow::name );
    return found == table.end( ) ? nullptr : &*found;
}

// What some node reads.
bool isKnown( GWStringView name )
{
    return std::ranges::any_of( GTemplateFactory::getElements( ),
                                [&]( const GElementRow& row ) { return findAttribute( &row, name ); } );
}

// What the engine sets by itself.
bool isSet( GWStringView name )
{
    for( const GElementRow& element : GTemplateFactory::getElements( ) )
        for( const GNameRow& row : element.getNames( ) )
            if( row.name == name ) return true;
    return false;
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
    explicit Checker( const std::vector<GSkinElement>& elements ) : _elements( elements ), _children( elements.size( ) )
    {
        for( size_t i = 0; i < elements.size( ); ++i )
            if( elements[i].parent >= 0 )
                _children[static_cast<size_t>( elements[i].parent )].push_back( static_cast<int>( i ) );
    }

    std::vector<GSkinFinding> run( )
    {
        _collect( );
        for( const GSkinElement& element : _elements )
        {
            _checkElement( element );
            _checkWidth( element );
            for( const auto& [name, value] : element.attributes ) _checkAttribute( element, name, value );
        }
        for( size_t i = 0; i < _elements.size( ); ++i ) _checkSiblings( static_cast<int>( i ) );
        std::ranges::stable_sort( _findings, { }, &GSkinFinding::line );
        return std::move( _findings );
    }

private:
    using Names = std::set<GWString, std::less<>>;

    template <typename... Parts>
    void _report( const GSkinElement& element, const Parts&... parts )
    {
        _findings.push_back( { element.line, GConcat( parts... ) } );
    }
    const GSkinElement& _at( int index ) const { return _elements[static_cast<size_t>( index )]; }
    int _indexOf( const GSkinElement& element ) const { return static_cast<int>( &element - _elements.data( ) ); }

    void _collect( )
    {
        for( const GSkinElement& element : _elements )
        {
            for( const auto& [name, value] : element.attributes )
            {
                forEachName( value, [&]( const GWString& used ) { _usedNames.insert( used ); } );
                _collectPrefixes( value );
                // A condition reads the name that it watches.
                if( GCaseEquals( name, u"watch" ) ) _usedNames.insert( GToLower( value ) );
                if( GCaseEquals( name, u"as" ) ) _usedNames.insert( GToLower( value ) );
                for( const GWString& step : GSplitList( value, u"/?();" ) ) _steps.insert( GToLower( step ) );
            }
        }
    }

    // "is_$online" builds names at run time: what begins like such a prefix may be meant by it.
    void _collectPrefixes( const GWString& value )
    {
        for( size_t at = value.find_first_of( u"${" ); at != GWString::npos; at = value.find_first_of( u"${", at + 1 ) )
        {
            size_t begin = at;
            while( begin > 0 && isNameCharacter( value[begin - 1] ) ) --begin;
            const GWString prefix = GToLower( GWStringView( value ).substr( begin, at - begin ) );
            if( prefix.ends_with( u'_' ) ) _prefixes.insert( prefix );
        }
    }
    bool _isDynamic( const GWString& name ) const
    {
        return std::ranges::any_of( _prefixes, [&]( const GWString& prefix ) { return name.starts_with( prefix ); } );
    }

    // ---- Elements.

    bool _isAddressed( const GSkinElement& element ) const
    {
        const GWString* id = element.find( ID );
        const GWString name = GToLower( element.name );
        return _steps.contains( name ) || ( id && _steps.contains( name + u"_" + GToLower( *id ) ) );
    }

    void _checkElement( const GSkinElement& element )
    {
        if( !findElement( element.name ) && !_isAddressed( element ) )
        {
            GStringVector known;
            for( const GElementRow& row : GTemplateFactory::getElements( ) ) known.emplace_back( row.name );
            _report( element, u"element <", element.name, u"> has no meaning and nothing refers to it",
                     GSkinSuggest( element.name, known ) );
        }
        if( element.parent < 0 ) return;
        const GWString around = GToLower( _at( element.parent ).name );
        const bool isPlaced = GCaseEquals( element.name, u"cell" ) || GCaseEquals( element.name, u"foreach" );
        if( ( around == u"row" || around == u"col" ) && !isPlaced )
            _report( element, u"<", element.name, u"> directly inside <", around,
                     u"> is never drawn: put it into a Cell" );
    }

    // Only the first of two children with the same name and id can be found.
    void _checkSiblings( int parent )
    {
        std::map<GWString, int> lines;
        for( const int child : _children[static_cast<size_t>( parent )] )
        {
            const GSkinElement& element = _at( child );
            const GWString* id = element.find( ID );
            if( !id || id->empty( ) || id->find( u'$' ) != GWString::npos ) continue;
            const auto [found, isNew] = lines.try_emplace( GToLower( element.name + u"_" + *id ), element.line );
            if( !isNew )
                _report( element, u"<", element.name, u" id=\"", *id, u"\"> stands beside another one (line ",
                         found->second, u"), which alone can be reached" );
        }
    }

    // ---- Attributes.

    void _checkAttribute( const GSkinElement& element, const GWString& name, const GWString& value )
    {
        _checkRead( element, name );
        const GAttributeRow* row = findAttribute( findElement( element.name ), name );
        if( row ) _checkValue( element, *row, value );
        if( row && row->kind != GAttributeKind::command ) _checkWatched( element, *row, value );
        forEachName( value, [&]( const GWString& used ) { _checkVisible( element, used ); } );
    }

    // Whether a node reads it: this one, one inside of it, or an expression.
    void _checkRead( const GSkinElement& element, const GWString& name )
    {
        if( name == ID || name == AUTOFOCUS || _usedNames.contains( name ) || isSet( name ) || _isDynamic( name ) )
            return;
        const bool known = isKnown( name );
        // Windows may all have the same settings, whether or not something in each of them needs them.
        if( known && ( GCaseEquals( element.name, u"window" ) || element.parent < 0 ) ) return;
        // A window that opens reads it of the stops of the tab key themselves.
        if( GCaseEquals( name, u"autofocus" ) ) return;
        GStringVector readable;
        Names seen;
        if( _isReadBelow( _indexOf( element ), name, readable, seen ) ) return;
        if( known )
            _report( element, u"attribute '", name, u"' of <", element.name,
                     u"> is read neither by it nor by what stands in it", GSkinSuggest( name, readable ) );
        else
            _report( element, u"attribute '", name, u"' of <", element.name, u"> is read by no node and no expression",
                     GSkinSuggest( name, readable ) );
    }

    bool _isReadBelow( int index, const GWString& name, GStringVector& readable, Names& seen ) const
    {
        const GSkinElement& element = _at( index );
        const GElementRow* row = findElement( element.name );
        if( findAttribute( row, name ) ) return true;
        if( row )
            for( const GAttributeRow& attribute : row->getAttributes( ) ) readable.emplace_back( attribute.name );
        for( const int child : _children[static_cast<size_t>( index )] )
            if( _isReadBelow( child, name, readable, seen ) ) return true;
        const GWString* source = GCaseEquals( element.name, u"copy" ) ? element.find( u"src" ) : nullptr;
        if( !source || !seen.insert( *source ).second ) return false;
        // What is copied is read as if it stood here; a path that is made at run time may lead anywhere.
        const int copied = _findPath( *source );
        return copied == GROWS || ( copied >= 0 && _isReadBelow( copied, name, readable, seen ) );
    }

    void _checkValue( const GSkinElement& element, const GAttributeRow& row, const GWString& value )
    {
        const auto report = [&]( const GWString& text )
        { _report( element, u"'", row.name, u"' of <", element.name, u">: ", text ); };
        const bool isPlain = value.find( u'$' ) == GWString::npos;
        if( row.kind == GAttributeKind::image ) _checkSource( element, value );
        if( row.kind == GAttributeKind::command ) _checkCommand( element, row.name, value );
        if( row.kind == GAttributeKind::path ) _checkPath( element, value );
        if( row.kind == GAttributeKind::colour && isPlain ) GSkinCheckColour( value, report );
        if( row.kind == GAttributeKind::font && isPlain ) GSkinCheckFont( value, report );
        if( row.kind == GAttributeKind::number && isPlain ) GSkinCheckNumber( value, report );
    }

    // A value of the client's that nothing in the window watches is shown as it was when something else changed.
    void _checkWatched( const GSkinElement& element, const GAttributeRow& row, const GWString& value )
    {
        const int window = _findWindow( _indexOf( element ) );
        const bool isRowsOwn = GCaseEquals( element.name, u"window" );
        if( window < 0 || isRowsOwn || row.kind == GAttributeKind::valueName ) return;
        forEachName( value,
                     [&]( const GWString& used )
                     {
                         if( GSkinValuesIsWhole( used ) && !_isSetAround( element, used ) && !_watches( window, used ) )
                             _report( element, u"'", row.name, u"' of <", element.name, u"> shows $", used,
                                      u", which nothing in the window watches: it would not be drawn again" );
                     } );
    }

    int _findWindow( int index ) const
    {
        while( index >= 0 && !GCaseEquals( _at( index ).name, u"window" ) ) index = _at( index ).parent;
        return index;
    }

    bool _isSetAround( const GSkinElement& element, const GWString& name ) const
    {
        for( const GSkinElement* at = &element; at; at = at->parent < 0 ? nullptr : &_at( at->parent ) )
            if( at->find( name ) ) return true;
        return false;
    }

    bool _watches( int index, const GWString& name ) const
    {
        const GSkinElement& element = _at( index );
        const GElementRow* row = findElement( element.name );
        for( const auto& [attribute, value] : element.attributes )
        {
            const GAttributeRow* is = findAttribute( row, attribute );
            if( !is || ( is->kind != GAttributeKind::valueName && attribute != u"watch" ) ) continue;
            for( const GWString& watched : GSplitList( value ) )
                if( GCaseEquals( watched, name ) ) return true;
        }
        const auto& children = _children[static_cast<size_t>( index )];
        return std::ranges::any_of( children, [&]( int child ) { return _watches( child, name ); } );
    }

    // ---- Pictures.

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

    // ---- Commands and paths.

    void _checkCommand( const GSkinElement& element, GWStringView name, const GWString& value )
    {
        if( value.empty( ) || value.front( ) == u'$' ) return;
        if( value.find( u'(' ) == GWString::npos )
        {
            _report( element, u"command '", name, u"' of <", element.name, u"> has no parentheses and does nothing" );
            return;
        }
        GSkinCheckCommand(
            value,
            [&]( const GWString& text ) { _report( element, u"'", name, u"' of <", element.name, u">: ", text ); },
            [&]( const GWString& nodePath ) { _checkPath( element, nodePath ); } );
    }

    void _checkPath( const GSkinElement& element, const GWString& path )
    {
        if( _findPath( path ) == NOWHERE ) _report( element, u"path '", path, u"' leads nowhere" );
    }

    static constexpr int NOWHERE = -1;
    static constexpr int GROWS = -2; // Or goes where only the run can tell.

    int _findPath( const GWString& path ) const
    {
        if( path.find( u'$' ) != GWString::npos || !path.starts_with( u"/skin/" ) ) return GROWS;
        int at = 0;
        bool first = true;
        for( const GWString& step : GSplitList( path, u"/" ) )
        {
            // Below a copy or a repetition the tree grows at run time.
            if( !first && at >= 0 ) at = _findChild( at, step );
            if( at == GROWS ) return GROWS;
            first = false;
        }
        return at;
    }

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
    std::vector<std::vector<int>> _children;
    std::vector<GSkinFinding> _findings;
    Names _usedNames;
    Names _prefixes;
    Names _steps;
    std::map<GWString, GImageFormat> _pictures;
};
} // namespace

std::vector<GSkinFinding> GSkinCheck( const std::vector<GSkinElement>& elements )
{
    return elements.empty( ) ? std::vector<GSkinFinding>( ) : Checker( elements ).run( );
}
