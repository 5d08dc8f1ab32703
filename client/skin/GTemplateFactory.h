// Turns a skin file into a tree of nodes and element names into node classes. A file that cannot be parsed, or that is beyond any
// measure, ends the program after a message box that names the line. Nothing but the file itself is read: external entities are
// empty. User-interface thread.
#pragma once

#include "client/skin/GSkinPlatform.h"
#include "client/skin/GTemplateNode.h"

#include <set>
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
    // What no skin needs more of. Beyond it a file counts as broken.
    static constexpr size_t MAX_FILE_SIZE = 64u << 20u; // bytes
    static constexpr size_t MAX_DEPTH = 256;            // elements within each other
    static constexpr size_t MAX_ELEMENTS = 100000;
    static constexpr size_t MAX_TEXT = 1u << 20u; // units of an attribute or of a run of character data
    static constexpr size_t MAX_ENTITY = 4096;    // units of an entity's own text
    static constexpr unsigned MAX_EXPANSIONS = 10000;

    explicit GTemplateFactory( const GSkinPlatform& platform = GSkinPlatform( ) );
    // The elements in the order in which a name is compared with them.
    static std::span<const GElementRow> getElements( );
    // The root of `filename`; the caller owns it. Null when the file holds no element.
    GTemplateNode* load( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename );
    // The same for a skin that is read while another one runs: a file that cannot be parsed gives null, and `error` tells where.
    GTemplateNode* tryLoad( GInstance* instance, IGCommandEngine* commandEngine, const GWString& filename,
                            GWString& error );
    // A node of the class that belongs to `name`, not linked into `parent`'s children. The caller owns it.
    static GTemplateNode* create( GInstance* instance, IGCommandEngine* commandEngine, GTemplateNode* parent,
                                  const GWString& name, const GAttributeList& attributes );

    void startElement( const XMLCh* uri, const XMLCh* localName, const XMLCh* qualifiedName,
                       const xercesc::Attributes& attributes ) override;
    void characters( const XMLCh* characters, XMLSize_t length ) override;
    void endElement( const XMLCh* uri, const XMLCh* localName, const XMLCh* qualifiedName ) override;
    void internalEntityDecl( const XMLCh* name, const XMLCh* value ) override;
    void setDocumentLocator( const xercesc::Locator* locator ) override { _locator = locator; }
    void error( const xercesc::SAXParseException& exception ) override;
    void fatalError( const xercesc::SAXParseException& exception ) override;
    // External entities are never fetched.
    xercesc::InputSource* resolveEntity( const XMLCh* publicId, const XMLCh* systemId ) override;

private:
    // Thrown through the parser for what is beyond any measure.
    struct Refusal
    {
        GWString text;
        uint64_t line;
    };
    struct Open
    {
        GTemplateNode* node = nullptr;
        std::set<GWString> ids; // Of its children, in lower case.
    };

    void _parse( );
    void _flushCharacters( );
    GAttributeList _readAttributes( const xercesc::Attributes& attributes );
    void _warnOfTwins( const GTemplateNode& node );
    uint64_t _getLine( ) const;
    [[noreturn]] void _refuse( GWStringView text );
    void _onParseError( const XMLCh* text, uint64_t line );
    [[noreturn]] void _leave( );

    GSkinPlatform _platform;
    GInstance* _instance = nullptr;
    IGCommandEngine* _commandEngine = nullptr;
    GTemplateNode* _root = nullptr;
    std::vector<Open> _nodeStack;
    size_t _elementCount = 0;
    const xercesc::Locator* _locator = nullptr; // Borrowed from the parser while it runs.
    GWString _filename;
    GWString _error;      // Why the file could not be parsed, and where.
    GWString _characters; // Of the open element, since the last tag.
};
