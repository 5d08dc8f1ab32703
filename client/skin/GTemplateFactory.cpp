#include "client/skin/GTemplateFactory.h"

#include "base/GUtil.h"
#include "client/skin/nodes/GBorderNode.h"
#include "client/skin/nodes/GBuddyListNode.h"
#include "client/skin/nodes/GButtonNode.h"
#include "client/skin/nodes/GCellNode.h"
#include "client/skin/nodes/GCopyNode.h"
#include "client/skin/nodes/GDefaultNode.h"
#include "client/skin/nodes/GEditNode.h"
#include "client/skin/nodes/GForeachNode.h"
#include "client/skin/nodes/GGradientNode.h"
#include "client/skin/nodes/GHotkeyNode.h"
#include "client/skin/nodes/GImageNode.h"
#include "client/skin/nodes/GInputNode.h"
#include "client/skin/nodes/GListNode.h"
#include "client/skin/nodes/GProgressNode.h"
#include "client/skin/nodes/GRowNode.h"
#include "client/skin/nodes/GScrollBarNode.h"
#include "client/skin/nodes/GTableNode.h"
#include "client/skin/nodes/GTextNode.h"
#include "client/skin/nodes/GWindowNode.h"
#include "client/skin/nodes/GWizardNode.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/SecurityManager.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace
{
template <typename NODE>
GTemplateNode* make( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent )
{
    return new NODE( instance, commandEngine, parent );
}

template <typename NODE>
constexpr GElementRow row( GWStringView name, const char* className, GWStringView meaning )
{
    return { name, className, make<NODE>, NODE::getAttributeTable, NODE::getNameTable, meaning };
}

// A name that one class serves together with others.
constexpr GElementRow named( GWStringView name, GWStringView meaning,
                             GAttributeTable ( *attributes )( ) = GTemplateNode::getAttributeTable,
                             GNameTable ( *names )( ) = GTemplateNode::getNameTable )
{
    return { name, "GDefaultNode", make<GDefaultNode>, attributes, names, meaning };
}

constexpr GElementRow piece( GWStringView name )
{
    return named( name, u"A piece of a `Border`. What stands in it leans towards the centre.",
                  GTemplateNode::getAttributeTable, GDefaultNode::getPieceNameTable );
}

// In the order in which they are tested. The rows without a class of their own give a name its meaning; the last one stands for any
// other name.
const GElementRow elements_[] = {
    row<GWindowNode>(
        u"Window", "GWindowNode",
        u"A top-level window of the desktop, with per-pixel transparency. What no other element claims drags it." ),
    row<GImageNode>( u"Image", "GImageNode", u"A picture." ),
    row<GBorderNode>( u"Border", "GBorderNode",
                      u"A frame of nine children: `topleft`, `top`, `topright`, `left`, `inside`, `right`, "
                      u"`bottomleft`, `bottom`, `bottomright`. Other children cover it whole, on top." ),
    row<GRowNode>( u"Row", "GRowNode",
                   u"Cells side by side. Only `Cell` children are drawn, and the cells that a `Foreach` repeats." ),
    row<GRowNode>( u"Col", "GRowNode", u"The same, one below the other." ),
    row<GCellNode>( u"Cell", "GCellNode",
                    u"A place in a row or column: as large as told, or as its content needs, and a share of the room "
                    u"that is left. Texts have a height of their own but no width." ),
    row<GForeachNode>( u"Foreach", "GForeachNode", u"Repeats its first child for each entry of a list." ),
    row<GInputNode>( u"Input", "GInputNode", u"A piece of the window's frame that resizes it." ),
    row<GButtonNode>( u"Button", "GButtonNode",
                      u"Runs commands when it is pressed. What stands in it is drawn on top of its picture." ),
    row<GBuddyListNode>( u"BuddyList", "GBuddyListNode",
                         u"The buddies with their live pictures. Holding a picture talks; a double click on it talks "
                         u"without hands, one on the name opens the chat; the right button opens a menu." ),
    row<GEditNode>( u"Edit", "GEditNode", u"A field to type into." ),
    row<GCopyNode>( u"Copy", "GCopyNode", u"Puts a copy of another node here, so that what is alike is written once." ),
    row<GGradientNode>( u"Gradient", "GGradientNode", u"Fills its place from one colour to another." ),
    row<GScrollBarNode>( u"ScrollBar", "GScrollBarNode", u"A handle on a track, which gives a position by a name." ),
    row<GTextNode>( u"Text", "GTextNode", u"A text." ),
    row<GWizardNode>( u"Wizard", "GWizardNode",
                      u"Shows one of its `page` children, beside a `header`, a `footer` and a `sidebar`." ),
    row<GListNode>( u"List", "GListNode", u"Rows to choose one from." ),
    row<GProgressNode>( u"Progress", "GProgressNode", u"A line as long as a value." ),
    row<GTableNode>( u"Table", "GTableNode", u"A row for each key of a list, a column for each suffix." ),
    row<GHotkeyNode>( u"Hotkey", "GHotkeyNode", u"A field that takes a key combination." ),
    named( u"On", u"Shows its content during one event.", GDefaultNode::getOnTable ),
    named( u"If", u"Shows its content on a condition.", GDefaultNode::getIfTable ),
    named( u"page", u"A page of a `Wizard`; needs an `id`.", GDefaultNode::getPageTable ),
    named( u"header", u"The strip at the top of a `Wizard`." ),
    named( u"sidebar", u"The strip at the left of a `Wizard`, at most half of its width." ),
    named( u"footer", u"The strip at the bottom of a `Wizard`." ),
    piece( u"topleft" ),
    piece( u"top" ),
    piece( u"topright" ),
    piece( u"left" ),
    piece( u"right" ),
    piece( u"bottomleft" ),
    piece( u"bottom" ),
    piece( u"bottomright" ),
    named( u"inside", u"The middle of a `Border`." ),
    named( u"skin", u"The root of the file." ),
    named( u"", u"Passes its attributes on to what stands in it; a path may lead through it." ),
};

const GElementRow& findElement( GWStringView name )
{
    const GElementRow* element = std::begin( elements_ );
    while( !element->name.empty( ) && !GCaseEquals( element->name, name ) ) ++element;
    return *element;
}

bool isBlank( char16_t character )
{
    return character == u'\t' || character == u'\n' || character == u' ';
}

// Runs of blanks become one space.
GWString collapseBlanks( GWStringView text )
{
    GWString out;
    for( const char16_t character : text )
        if( !isBlank( character ) )
            out += character;
        else if( out.empty( ) || out.back( ) != u' ' )
            out += u' ';
    return out;
}

// Keeps the parser up for a scope.
struct Xerces
{
    Xerces( ) { xercesc::XMLPlatformUtils::Initialize( ); }
    ~Xerces( ) { xercesc::XMLPlatformUtils::Terminate( ); }
    Xerces( const Xerces& ) = delete;
    Xerces& operator=( const Xerces& ) = delete;
};
} // namespace

std::span<const GElementRow> GTemplateFactory::getElements( )
{
    return elements_;
}

GTemplateFactory::GTemplateFactory( const GSkinPlatform& platform ) : _platform( platform ) {}

GTemplateNode* GTemplateFactory::load( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename )
{
    GWString error;
    GTemplateNode* root = tryLoad( instance, commandEngine, filename, error );
    if( !error.empty( ) ) _leave( );
    return root;
}

GTemplateNode* GTemplateFactory::tryLoad( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename,
                                          GWString& error )
{
    GCALL( GTemplateFactory );
    _instance = instance;
    _commandEngine = commandEngine;
    _filename = filename;
    _root = nullptr;
    _error.clear( );
    _nodeStack.clear( );
    _elementCount = 0;
    _characters.clear( );
    _parse( );
    _locator = nullptr;
    error = _error;
    if( _error.empty( ) )
    {
        GVERIFY( _nodeStack.empty( ) );
        return _root;
    }
    // Nodes below an unfinished one hang there already.
    delete _root;
    _root = nullptr;
    _nodeStack.clear( );
    return nullptr;
}

void GTemplateFactory::_parse( )
{
    const Xerces xerces;
    std::error_code none;
    const uintmax_t size = std::filesystem::file_size( std::filesystem::path( _filename ), none );
    if( !none && size > MAX_FILE_SIZE ) return _onParseError( u"The file is too long", 0 );
    xercesc::SecurityManager limits;
    limits.setEntityExpansionLimit( MAX_EXPANSIONS );
    try
    {
        const std::unique_ptr<xercesc::SAX2XMLReader> reader( xercesc::XMLReaderFactory::createXMLReader( ) );
        reader->setContentHandler( this );
        reader->setErrorHandler( this );
        reader->setEntityResolver( this );
        reader->setDeclarationHandler( this );
        reader->setProperty( xercesc::XMLUni::fgXercesSecurityManager, &limits );
        reader->parse( _filename.c_str( ) );
    }
    catch( const Refusal& refusal )
    {
        _onParseError( refusal.text.c_str( ), refusal.line );
    }
    catch( const xercesc::SAXParseException& exception )
    {
        _onParseError( exception.getMessage( ), exception.getLineNumber( ) );
    }
    catch( const xercesc::SAXException& exception )
    {
        _onParseError( exception.getMessage( ), _getLine( ) );
    }
    catch( const xercesc::XMLException& exception )
    {
        _onParseError( exception.getMessage( ), _getLine( ) );
    }
}

GTemplateNode* GTemplateFactory::create( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent,
                                         const GWString& name, const GAttributeList& attributes )
{
    const GElementRow& element = findElement( name );
    GTemplateNode* node = element.create( instance, commandEngine, parent );
    GHeapObject::trackObject( node, __FILE__, __FUNCTION__, __LINE__, element.className );
    if( &node->_attributes != &attributes ) node->_attributes = attributes;
    node->_name = name;
    return node;
}

uint64_t GTemplateFactory::_getLine( ) const
{
    return _locator ? _locator->getLineNumber( ) : 0;
}

void GTemplateFactory::_refuse( GWStringView text )
{
    throw Refusal{ GWString( text ), _getLine( ) };
}

GAttributeList GTemplateFactory::_readAttributes( const xercesc::Attributes& attributes )
{
    GAttributeList list;
    for( XMLSize_t index = 0; index < attributes.getLength( ); ++index )
    {
        const GWStringView value = attributes.getValue( index );
        if( value.size( ) > MAX_TEXT ) _refuse( u"An attribute is too long" );
        list.emplace_back( GToLower( GWStringView( attributes.getQName( index ) ) ), value );
    }
    return list;
}

// Two of one id stand beside each other: paths lead to the first.
void GTemplateFactory::_warnOfTwins( const GTemplateNode& node )
{
    if( _nodeStack.empty( ) || node.getAttribute( u"id" ).empty( ) ) return;
    if( _nodeStack.back( ).ids.insert( GToLower( node.getID( ) ) ).second ) return;
    GLOG( u"WARNING No path leads to the second '", node.getPath( ), u"' on line ", _getLine( ), u" of '", _filename,
          u"', ignoring." );
}

void GTemplateFactory::startElement( const XMLCh*, const XMLCh*, const XMLCh* qualifiedName,
                                     const xercesc::Attributes& attributes )
{
    _flushCharacters( );
    if( _nodeStack.size( ) >= MAX_DEPTH ) _refuse( u"Elements stand too deep within each other" );
    if( ++_elementCount > MAX_ELEMENTS ) _refuse( u"There are too many elements" );
    GTemplateNode* parent = _nodeStack.empty( ) ? nullptr : _nodeStack.back( ).node;
    GTemplateNode* node = create( _instance, _commandEngine, parent, qualifiedName, _readAttributes( attributes ) );
    _warnOfTwins( *node );
    if( parent )
        parent->appendChild( node );
    else
        _root = node;
    _nodeStack.push_back( { node, {} } );
}

void GTemplateFactory::characters( const XMLCh* characters, XMLSize_t length )
{
    // The parser hands one run over in pieces; blanks at their seams belong to the text.
    if( _characters.size( ) + length > MAX_TEXT ) _refuse( u"A text is too long" );
    _characters.append( characters, length );
}

void GTemplateFactory::_flushCharacters( )
{
    const GWString text = collapseBlanks( GTrim( _characters ) );
    _characters.clear( );
    if( text.empty( ) || _nodeStack.empty( ) ) return;
    GWString& whole = _nodeStack.back( ).node->_obtainAttribute( u"text" );
    if( whole.size( ) + text.size( ) > MAX_TEXT ) _refuse( u"A text is too long" );
    whole += text;
}

void GTemplateFactory::endElement( const XMLCh*, const XMLCh*, const XMLCh* )
{
    _flushCharacters( );
    _nodeStack.pop_back( );
}

void GTemplateFactory::internalEntityDecl( const XMLCh*, const XMLCh* value )
{
    if( GWStringView( value ).size( ) > MAX_ENTITY ) _refuse( u"An entity is too long" );
}

void GTemplateFactory::error( const xercesc::SAXParseException& exception )
{
    throw exception;
}

void GTemplateFactory::fatalError( const xercesc::SAXParseException& exception )
{
    throw exception;
}

xercesc::InputSource* GTemplateFactory::resolveEntity( const XMLCh*, const XMLCh* )
{
    static const XMLByte nothing[1] = { };
    return new xercesc::MemBufInputSource( nothing, 0, u"nothing" );
}

void GTemplateFactory::_onParseError( const XMLCh* text, uint64_t line )
{
    _error = GConcat( u"ERROR while parsing '", _filename, u"': ", text, u" on line ", line );
}

void GTemplateFactory::_leave( )
{
    const GWString message = _error + u", exiting.";
    GLOG( message );
    _platform.showError( u"Velmora Skin Error", message );
    // Services are running already: nothing is taken down on the way out.
    std::_Exit( 1 );
}
