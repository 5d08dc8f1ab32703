#include "GSkinReader.h"

#include "base/GUtil.h"

#include <algorithm>
#include <memory>
#include <xercesc/sax/Locator.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/sax2/Attributes.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

namespace
{
class Handler : public xercesc::DefaultHandler
{
public:
    explicit Handler( std::vector<GSkinElement>& elements ) : _elements( elements ) {}

    void setDocumentLocator( const xercesc::Locator* locator ) override { _locator = locator; }
    void startElement( const XMLCh*, const XMLCh*, const XMLCh* name, const xercesc::Attributes& attributes ) override
    {
        GSkinElement element;
        element.name = name;
        element.line = _locator ? static_cast<int>( _locator->getLineNumber( ) ) : 0;
        element.parent = _open.empty( ) ? -1 : _open.back( );
        for( XMLSize_t i = 0; i < attributes.getLength( ); ++i )
            element.attributes.emplace_back( GToLower( GWStringView( attributes.getQName( i ) ) ),
                                             attributes.getValue( i ) );
        _open.push_back( static_cast<int>( _elements.size( ) ) );
        _elements.push_back( std::move( element ) );
    }
    void endElement( const XMLCh*, const XMLCh*, const XMLCh* ) override { _open.pop_back( ); }
    void error( const xercesc::SAXParseException& exception ) override { throw exception; }
    void fatalError( const xercesc::SAXParseException& exception ) override { throw exception; }

private:
    std::vector<GSkinElement>& _elements;
    std::vector<int> _open;
    const xercesc::Locator* _locator = nullptr;
};

bool parse( const GWString& filename, std::vector<GSkinElement>& elements, GWString& error, int& line )
{
    try
    {
        Handler handler( elements );
        const std::unique_ptr<xercesc::SAX2XMLReader> reader( xercesc::XMLReaderFactory::createXMLReader( ) );
        reader->setContentHandler( &handler );
        reader->setErrorHandler( &handler );
        reader->parse( filename.c_str( ) );
        return true;
    }
    catch( const xercesc::SAXParseException& exception )
    {
        error = exception.getMessage( );
        line = static_cast<int>( exception.getLineNumber( ) );
    }
    catch( const xercesc::XMLException& exception )
    {
        error = exception.getMessage( );
        line = static_cast<int>( exception.getSrcLine( ) );
    }
    return false;
}
} // namespace

const GWString* GSkinElement::find( GWStringView attribute ) const
{
    const auto found = std::find_if( attributes.begin( ), attributes.end( ),
                                     [&]( const auto& pair ) { return pair.first == attribute; } );
    return found == attributes.end( ) ? nullptr : &found->second;
}

bool GSkinRead( const GWString& filename, std::vector<GSkinElement>& elements, GWString& error, int& line )
{
    elements.clear( );
    xercesc::XMLPlatformUtils::Initialize( );
    const bool read = parse( filename, elements, error, line );
    xercesc::XMLPlatformUtils::Terminate( );
    return read;
}
