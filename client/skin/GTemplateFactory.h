// Turns a skin file into a tree of nodes and element names into node classes. A file that cannot be parsed ends the program after
// a message box. User-interface thread.
#pragma once

#include "client/skin/GSkinPlatform.h"
#include "client/skin/GTemplateNode.h"

#include <vector>
#include <xercesc/sax2/DefaultHandler.hpp>

// One row an element: its name as skins write it, the class that serves it, and what that class reads and sets.
struct GElementRow
{
    GWStringView name; // Empty in the last row, which stands for any other name.
    const char* className;
    GTemplateNode* ( *create )( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent );
    GAttributeTable ( *getAttributes )( );
    GNameTable ( *getNames )( );
    GWStringView meaning;
};

class GTemplateFactory : public GHeapObject, public xercesc::DefaultHandler
{
public:
    explicit GTemplateFactory( const GSkinPlatform& platform = GSkinPlatform( ) );
    // The elements in the order in which a name is compared with them.
    static std::span<const GElementRow> getElements( );
    // The root of `filename`; the caller owns it. Null when the file holds no element.
    GTemplateNode* load( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename );
    // A node of the class that belongs to `name`, not linked into `parent`'s children. The caller owns it.
    static GTemplateNode* create( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent,
                                  const GWString& name, const GAttributeList& attributes );

    void startElement( const XMLCh* uri, const XMLCh* localName, const XMLCh* qualifiedName,
                       const xercesc::Attributes& attributes ) override;
    void characters( const XMLCh* characters, XMLSize_t length ) override;
    void endElement( const XMLCh* uri, const XMLCh* localName, const XMLCh* qualifiedName ) override;
    void error( const xercesc::SAXParseException& exception ) override;
    void fatalError( const xercesc::SAXParseException& exception ) override;
    // External entities are never fetched.
    xercesc::InputSource* resolveEntity( const XMLCh* publicId, const XMLCh* systemId ) override;

private:
    void _parse( );
    void _flushCharacters( );
    [[noreturn]] void _onParseError( const XMLCh* text, uint64_t line );

    GSkinPlatform _platform;
    GInstance* _instance = nullptr;
    IGCommandEngine* _commandEngine = nullptr;
    GTemplateNode* _root = nullptr;
    std::vector<GTemplateNode*> _nodeStack;
    GWString _filename;
    GWString _characters; // Of the open element, since the last tag.
};
