#include "client/skin/GTemplateFactory.h"

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
#include <memory>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

namespace
{
using Creator = GTemplateNode* (*)( GInstance*, IGCommandEngine*, GTemplateNode* );
struct Element
{
    GWStringView name;
    const char* className;
    Creator create;
};

template <typename NODE>
GTemplateNode* make( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent )
{
    return new NODE( instance, commandEngine, parent );
}

// The last row stands for any other name.
const Element elements_[] = {
    { u"Window", "GWindowNode", make<GWindowNode> },
    { u"Image", "GImageNode", make<GImageNode> },
    { u"Border", "GBorderNode", make<GBorderNode> },
    { u"Row", "GRowNode", make<GRowNode> },
    { u"Col", "GRowNode", make<GRowNode> },
    { u"Cell", "GCellNode", make<GCellNode> },
    { u"Foreach", "GForeachNode", make<GForeachNode> },
    { u"Input", "GInputNode", make<GInputNode> },
    { u"Button", "GButtonNode", make<GButtonNode> },
    { u"BuddyList", "GBuddyListNode", make<GBuddyListNode> },
    { u"Edit", "GEditNode", make<GEditNode> },
    { u"Copy", "GCopyNode", make<GCopyNode> },
    { u"Gradient", "GGradientNode", make<GGradientNode> },
    { u"ScrollBar", "GScrollBarNode", make<GScrollBarNode> },
    { u"Text", "GTextNode", make<GTextNode> },
    { u"Wizard", "GWizardNode", make<GWizardNode> },
    { u"List", "GListNode", make<GListNode> },
    { u"Progress", "GProgressNode", make<GProgressNode> },
    { u"Table", "GTableNode", make<GTableNode> },
    { u"Hotkey", "GHotkeyNode", make<GHotkeyNode> },
    { u"", "GDefaultNode", make<GDefaultNode> },
};

const Element& findElement( GWStringView name )
{
    const Element* element = std::begin( elements_ );
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

GTemplateFactory::GTemplateFactory( const GSkinPlatform& platform ) : _platform( platform ) {}

GTemplateNode* GTemplateFactory::load( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename )
{
    GCALL( GTemplateFactory );
    _instance = instance;
    _commandEngine = commandEngine;
    _filename = filename;
    _root = nullptr;
    _nodeStack.clear( );
    _characters.clear( );
    _parse( );
    GVERIFY( _nodeStack.empty( ) );
    return _root;
}

void GTemplateFactory::_parse( )
{
    const Xerces xerces;
    try
    {
        const std::unique_ptr<xercesc::SAX2XMLReader> reader( xercesc::XMLReaderFactory::createXMLReader( ) );
        reader->setContentHandler( this );
        reader->setErrorHandler( this );
        reader->setEntityResolver( this );
        reader->parse( _filename.c_str( ) );
    }
    catch( const xercesc::SAXParseException& exception )
    {
        _onParseError( exception.getMessage( ), exception.getLineNumber( ) );
    }
    catch( const xercesc::SAXException& exception )
    {
        _onParseError( exception.getMessage( ), 0 );
    }
    catch( const xercesc::XMLException& exception )
    {
        _onParseError( exception.getMessage( ), exception.getSrcLine( ) );
    }
}

GTemplateNode* GTemplateFactory::create( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent,
                                         const GWString& name, const GAttributeList& attributes )
{
    const Element& element = findElement( name );
    GTemplateNode* node = element.create( instance, commandEngine, parent );
    GHeapObject::trackObject( node, __FILE__, __FUNCTION__, __LINE__, element.className );
    if( &node->_attributes != &attributes ) node->_attributes = attributes;
    node->_name = name;
    return node;
}

void GTemplateFactory::startElement( const XMLCh*, const XMLCh*, const XMLCh* qualifiedName,
                                     const xercesc::Attributes& attributes )
{
    _flushCharacters( );
    GAttributeList list;
    for( XMLSize_t index = 0; index < attributes.getLength( ); ++index )
        list.emplace_back( GToLower( GWStringView( attributes.getQName( index ) ) ), attributes.getValue( index ) );
    GTemplateNode* parent = _nodeStack.empty( ) ? nullptr : _nodeStack.back( );
    GTemplateNode* node = create( _instance, _commandEngine, parent, qualifiedName, list );
    if( parent )
        parent->appendChild( node );
    else
        _root = node;
    _nodeStack.push_back( node );
}

void GTemplateFactory::characters( const XMLCh* characters, XMLSize_t length )
{
    // The parser hands one run over in pieces; blanks at their seams belong to the text.
    _characters.append( characters, length );
}

void GTemplateFactory::_flushCharacters( )
{
    const GWString text = collapseBlanks( GTrim( _characters ) );
    _characters.clear( );
    if( text.empty( ) || _nodeStack.empty( ) ) return;
    GTemplateNode* node = _nodeStack.back( );
    node->setAttribute( u"text", node->getAttribute( u"text" ) + text );
}

void GTemplateFactory::endElement( const XMLCh*, const XMLCh*, const XMLCh* )
{
    _flushCharacters( );
    _nodeStack.pop_back( );
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
    const GWString message =
        GConcat( u"ERROR while parsing '", _filename, u"': ", text, u" on line ", line, u", exiting." );
    GLOG( message );
    _platform.showError( u"Velmora Skin Error", message );
    // Services are running already: nothing is taken down on the way out.
    std::_Exit( 1 );
}
