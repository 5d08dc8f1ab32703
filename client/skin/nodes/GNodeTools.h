// What the node classes share: watches that end by themselves, fonts that are read from the skin, alignment flags, the framed
// field of text inputs, and the rule that a node is never deleted while it handles an event. User-interface thread.
#pragma once

#include "base/GRect.h"
#include "client/drawing/GFont.h"
#include "client/skin/GAttributeStack.h"

struct GImageFormat;
class GImageStack;
class GTemplateNode;

// Kinds of a watch: what the window does when the value changes.
constexpr int GWATCH_RENDER = 1;
constexpr int GWATCH_UPDATE = 2;

// A watch on one blackboard value, taken back when the name changes or the object ends.
class GNodeWatch
{
public:
    explicit GNodeWatch( int kind ) : _kind( kind ) {}
    ~GNodeWatch( ) { clear( ); }
    GNodeWatch( const GNodeWatch& ) = delete;
    GNodeWatch& operator=( const GNodeWatch& ) = delete;

    // Watches `name` (none when empty) instead of the former one; true when the name changed. `instance` is borrowed for the
    // object's life.
    bool update( GInstance* instance, GWStringView name, GNotifyHandle listener );
    void clear( );
    const GWString& getName( ) const { return _name; }

private:
    int _kind;
    GInstance* _instance = nullptr;
    GNotifyHandle _listener = nullptr;
    GWString _name;
};

// The same for a list of names; a name that stands in it twice is watched once.
class GNodeWatchList
{
public:
    explicit GNodeWatchList( int kind ) : _kind( kind ) {}
    ~GNodeWatchList( ) { clear( ); }
    GNodeWatchList( const GNodeWatchList& ) = delete;
    GNodeWatchList& operator=( const GNodeWatchList& ) = delete;

    void update( GInstance* instance, const GStringList& names, GNotifyHandle listener );
    // Adds a name and keeps the others.
    void add( GInstance* instance, const GWString& name, GNotifyHandle listener );
    void clear( );
    const GStringList& getNames( ) const { return _names; }

private:
    int _kind;
    GInstance* _instance = nullptr;
    GNotifyHandle _listener = nullptr;
    GStringList _names;
};

// A font with the attribute that names it; built on first use.
class GNodeFont
{
public:
    GNodeFont( ) = default;
    ~GNodeFont( );
    GNodeFont( const GNodeFont& ) = delete;
    GNodeFont& operator=( const GNodeFont& ) = delete;

    // Evaluates the expression; true when the font changed.
    bool read( GAttributeStack& stack, GWStringView expression );
    // The same, with the other font's text when that attribute is empty.
    bool read( GAttributeStack& stack, GWStringView expression, const GNodeFont& fallback );
    GFont& get( );
    operator GFont&( ) { return get( ); }
    int getHeight( ) { return get( ).getHeight( ); }
    const GWString& getText( ) const { return _text; }

private:
    bool _update( );

    GWString _text;
    GFont* _font = nullptr;
};

// Adds the flags of "$align" and "$valign" to `flags` (GIC_* numbers); flags are never taken away. True when they changed.
bool GNodeTools_readAlign( GAttributeStack& stack, int& flags );
// Reads as GAttributeStack does, but gives `fallback` for an empty text.
bool GNodeTools_readOr( GAttributeStack& stack, GWStringView expression, GWStringView fallback, GWString& value );
// Reads a blackboard value into a member and says whether it changed; an empty name reads as empty.
bool GNodeTools_readValue( GInstance* instance, GWStringView name, GWString& value );
// The offset of a thing of `size` in `room` by the bits for middle and end; never below 0.
int GNodeTools_offset( int room, int size, bool middle, bool end );
// The name of an image source without its rectangle.
GWStringView GNodeTools_imageName( GWStringView source );
// Draws a part of a picture over `target` as nine pieces: the corners of `slice` pixels keep their size, what is between them is
// stretched. Corners that do not fit shrink; with a slice of 0 the whole part is stretched.
void GNodeTools_drawSliced( GImageStack& images, const GImageFormat& format, const char* pixels, const GRect& source,
                            const GRect& target, int slice );
// Runs the command with the node as its source, if there is any.
void GNodeTools_execute( GTemplateNode* node, const GWString& command );

// The margins of a text field: `outer`, a frame of one pixel, `inner`.
struct GNodeField
{
    int inner = 0;
    int outer = 0;
    GWString frameColour; // "$framecolor", "#000000FF" when empty.
    GWString focusColour; // "$focuscolor", the frame's when empty.

    bool read( GAttributeStack& stack );
    // What the margins and the frame take on both sides together.
    int getMargin( ) const { return 2 * ( inner + outer + 1 ); }
    // Draws the frame and gives the rectangle left for the text, never inverted. A single line of `lineHeight` that does not fit
    // between the margins stands in the middle instead; 0 for several lines.
    GRect draw( GImageStack& images, bool focus, int lineHeight ) const;
};

// Held while a node handles an event or runs a command: whoever removes a node meanwhile keeps it until later.
class GNodeBusy
{
public:
    GNodeBusy( ) { ++_depth; }
    ~GNodeBusy( ) { --_depth; }
    GNodeBusy( const GNodeBusy& ) = delete;
    GNodeBusy& operator=( const GNodeBusy& ) = delete;
    static bool isBusy( ) { return _depth > 0; }

private:
    static int _depth;
};
// Takes the node and all below it out of their window's focus, capture and input map, and hides the windows among them. Called
// before a subtree leaves the tree.
void GNodeTools_retire( GTemplateNode* node );
