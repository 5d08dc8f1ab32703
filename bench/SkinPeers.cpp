#include "SkinPeers.h"

#include <QApplication>
#include <QGridLayout>
#include <QLabel>
#include <QPainter>

#include <boost/spirit/include/classic_core.hpp>
#include <xercesc/sax2/DefaultHandler.hpp>
#include <xercesc/sax2/SAX2XMLReader.hpp>
#include <xercesc/sax2/XMLReaderFactory.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace Bench
{
Labels::Labels( ) : _window( std::make_unique<QWidget>( ) ), _image( 800, 1000, QImage::Format_ARGB32_Premultiplied )
{
    constexpr int COLUMNS = 20;
    auto* layout = new QGridLayout( _window.get( ) );
    layout->setSpacing( 0 );
    for( int i = 0; i < COUNT; ++i )
    {
        _labels.push_back( new QLabel( QStringLiteral( "value %1" ).arg( i ) ) );
        layout->addWidget( _labels.back( ), i / COLUMNS, i % COLUMNS );
    }
    _window->resize( _image.size( ) );
    paint( );
}
Labels::~Labels( ) = default;

void Labels::change( int count, int round )
{
    for( int i = 0; i < count; ++i )
        _labels[static_cast<size_t>( i * ( COUNT / count ) )]->setText( QStringLiteral( "value %1" ).arg( round + i ) );
    QCoreApplication::sendPostedEvents( nullptr, QEvent::LayoutRequest );
    _window->layout( )->activate( );
}

void Labels::paint( )
{
    _image.fill( Qt::white );
    _window->render( &_image );
}

int parseOnly( const GWString& path )
{
    struct Counter : xercesc::DefaultHandler
    {
        void startElement( const XMLCh*, const XMLCh*, const XMLCh*, const xercesc::Attributes& ) override { ++count; }
        int count = 0;
    } counter;
    xercesc::XMLPlatformUtils::Initialize( );
    {
        const std::unique_ptr<xercesc::SAX2XMLReader> reader( xercesc::XMLReaderFactory::createXMLReader( ) );
        reader->setContentHandler( &counter );
        reader->parse( path.c_str( ) );
    }
    xercesc::XMLPlatformUtils::Terminate( );
    return counter.count;
}

namespace spirit = boost::spirit::classic;

struct SharedGrammar::Rules
{
    using Text = const char16_t*;
    using Rule = spirit::rule<spirit::scanner<Text>>;

    Rules( )
    {
        const auto push = [this]( Text first, Text last ) { values.emplace_back( first, last ); };
        const auto pushDollar = [this]( char16_t ) { values.emplace_back( u"$" ); };
        const auto look = [this]( Text, Text )
        {
            const auto found = names->find( values.back( ) );
            values.back( ) = found == names->end( ) ? GWString( ) : found->second;
        };
        const auto join = [this]( Text, Text )
        {
            const GWString last = values.back( );
            values.pop_back( );
            values.back( ) += last;
        };
        const auto token = []( char16_t character ) { return spirit::ch_p( character ); };
        literal = ( +( spirit::anychar_p - token( u'$' ) - token( u'{' ) ) )[push];
        name = ( spirit::alnum_p >> *( spirit::alnum_p | token( u'.' ) | token( u'_' ) | token( u'@' ) ) )[push];
        variable = ( token( u'$' ) >> name )[look];
        element = literal | variable | ( token( u'{' ) >> element >> token( u'}' ) ) | token( u'$' )[pushDollar];
        top = element >> *( element[join] );
    }

    std::vector<GWString> values;
    const std::map<GWString, GWString>* names = nullptr;
    Rule literal, name, variable, element, top;
};

SharedGrammar::SharedGrammar( ) : _rules( std::make_unique<Rules>( ) ) {}
SharedGrammar::~SharedGrammar( ) = default;

GWString SharedGrammar::expand( const std::map<GWString, GWString>& names, const GWString& text ) const
{
    GWString work = text;
    _rules->names = &names;
    while( work.find( u'$' ) != GWString::npos )
    {
        _rules->values.clear( );
        const char16_t* const begin = work.data( );
        spirit::parse( begin, begin + work.size( ), _rules->top );
        if( _rules->values.empty( ) ) return { };
        if( _rules->values.back( ) == work ) break;
        work = _rules->values.back( );
    }
    return work;
}
} // namespace Bench
