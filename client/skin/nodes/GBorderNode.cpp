#include "client/skin/nodes/GBorderNode.h"

#include "client/drawing/GImageStack.h"

#include <algorithm>
#include <charconv>

namespace
{
constexpr GWStringView PIECE_NAMES[] = { u"topleft", u"top",        u"topright", u"left",       u"inside",
                                         u"right",   u"bottomleft", u"bottom",   u"bottomright" };
constexpr int INSIDE = 4;

double parseAspect( const GWString& text )
{
    const GString narrow = GWideToUTF8( GTrim( text ) );
    double value = 0;
    std::from_chars( narrow.data( ), narrow.data( ) + narrow.size( ), value );
    return value;
}
} // namespace

GAttributeTable GBorderNode::getAttributeTable( )
{
    static constexpr GAttributeRow ROWS[] = {
        { u"aspect", GAttributeKind::text, u"",
          u"The inner piece's width to its height: a number such as 1.333, or `inside` for that piece's own. The room "
          u"left over stays empty." },
    };
    return ROWS;
}

bool GBorderNode::_isPiece( const GTemplateNode& node )
{
    return std::any_of( std::begin( PIECE_NAMES ), std::end( PIECE_NAMES ),
                        [&]( GWStringView name ) { return node.isNamed( name ); } );
}

GBorderNode::Pieces GBorderNode::_getPieces( ) const
{
    Pieces pieces{ };
    for( GTemplateNode* child : _children )
    {
        for( size_t i = 0; i < pieces.size( ); ++i )
        {
            if( !pieces[i] && child->isNamed( PIECE_NAMES[i] ) ) pieces[i] = child;
        }
    }
    return pieces;
}

GBorderNode::Grid GBorderNode::_measure( const Pieces& pieces )
{
    Grid grid{ };
    for( size_t i = 0; i < pieces.size( ); ++i )
    {
        if( !pieces[i] ) continue;
        int width = 0;
        int height = 0;
        pieces[i]->calcMinSize( width, height );
        grid.columns[i % 3] = std::max( grid.columns[i % 3], width );
        grid.rows[i / 3] = std::max( grid.rows[i / 3], height );
    }
    return grid;
}

void GBorderNode::calcMinSize( int& width, int& height )
{
    const Grid grid = _measure( _getPieces( ) );
    width = std::max( width, grid.columns[0] + grid.columns[1] + grid.columns[2] );
    height = std::max( height, grid.rows[0] + grid.rows[1] + grid.rows[2] );
    for( GTemplateNode* child : _children )
    {
        if( !_isPiece( *child ) ) child->calcMinSize( width, height );
    }
}

bool GBorderNode::_postChildUpdate( GAttributeStack& stack )
{
    return stack.read( u"$aspect", _aspect );
}

void GBorderNode::_holdAspect( GTemplateNode* inside, GRect& inner ) const
{
    if( _aspect.empty( ) || !inside || GRectEmpty( inner ) ) return;
    const double current = static_cast<double>( inner.width( ) ) / inner.height( );
    double target = 0;
    if( GCaseEquals( _aspect, u"inside" ) )
    {
        int width = 0;
        int height = 0;
        inside->calcMinSize( width, height );
        if( height > 0 ) target = static_cast<double>( width ) / height;
    }
    else
        target = parseAspect( _aspect );
    if( !( target > 0 ) ) return;
    if( target > current )
        inner.bottom = inner.top + static_cast<int>( inner.width( ) / target );
    else if( target < current )
        inner.right = inner.left + static_cast<int>( inner.height( ) * target );
}

void GBorderNode::_renderChildren( GImageStack& images )
{
    int width = 0;
    int height = 0;
    images.getDimensions( width, height );
    const Pieces pieces = _getPieces( );
    const Grid grid = _measure( pieces );
    GRect inner{ grid.columns[0], grid.rows[0], std::max( grid.columns[0], width - grid.columns[2] ),
                 std::max( grid.rows[0], height - grid.rows[2] ) };
    _holdAspect( pieces[INSIDE], inner );

    const int xs[] = { 0, inner.left, inner.right, inner.right + grid.columns[2] };
    const int ys[] = { 0, inner.top, inner.bottom, inner.bottom + grid.rows[2] };
    for( size_t i = 0; i < pieces.size( ); ++i )
    {
        if( !pieces[i] ) continue;
        images.pushTarget( { xs[i % 3], ys[i / 3], xs[i % 3 + 1], ys[i / 3 + 1] } );
        pieces[i]->render( images );
        images.pop( );
    }
    for( GTemplateNode* child : _children )
    {
        // A second piece of the same name has no place of its own.
        if( _isPiece( *child ) ) continue;
        images.pushTarget( { 0, 0, std::max( 0, width ), std::max( 0, height ) } );
        child->render( images );
        images.pop( );
    }
}
