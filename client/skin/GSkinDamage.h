// What of a window must be drawn anew since values have changed that are watched for a repaint alone, in pixels of its layer.
// User-interface thread.
#pragma once

#include "base/GRect.h"

class GSkinDamage
{
public:
    explicit GSkinDamage( uint64_t since ) : _since( since ), _rect( GRectAccumulator( ) ) {}

    // When the window was drawn last, by GTimeGetTime: what has a timestamp from then on has changed.
    uint64_t getSince( ) const { return _since; }
    // A place that shows a changed value.
    void add( const GRect& rect )
    {
        addMoving( rect );
        _isKnown = true;
    }
    // A change after which everything may lie elsewhere.
    void addAll( ) { add( { INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX } ); }
    // A changed value that shows nowhere at present.
    void addNothing( ) { _isKnown = true; }
    // A place that changes without a value.
    void addMoving( const GRect& rect )
    {
        if( GRectHasVolume( rect ) ) _rect = GRectUnion( _rect, rect );
    }

    const GRect& getRect( ) const { return _rect; }
    // False while no node has told of a changed value.
    bool isKnown( ) const { return _isKnown; }

private:
    uint64_t _since;
    GRect _rect;
    bool _isKnown = false;
};
