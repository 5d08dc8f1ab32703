#include "client/skin/GSkinChoice.h"

#include "base/GPortable.h"
#include "base/GUtil.h"

namespace
{
constexpr GWStringView PLAIN = u"template.xml";

// "100", "150" and "200" overrule the desktop.
double getFactor( const GWString& text, double desktop )
{
    for( const int percent : { 100, 150, 200 } )
        if( text == GNumber( percent ) ) return percent / 100.0;
    return desktop;
}

GWStringView getScalePart( double factor )
{
    if( factor >= 1.75 ) return u"@2x";
    return factor >= 1.25 ? u"@1.5x" : u"";
}
} // namespace

GSkinChoice::GSkinChoice( GInstance& instance, std::function<double( )> scale )
    : _instance( instance ), _getScale( std::move( scale ) )
{
    update( );
}

bool GSkinChoice::update( )
{
    bool changed = _file.empty( );
    const auto read = [&]( GWStringView name, GWString& value )
    {
        _instance.get( name, _passing );
        if( _passing == value ) return;
        value = _passing;
        changed = true;
    };
    read( u"Skin_Palette", _palette );
    read( u"Skin_Scale", _scaleText );
    const double scale = _getScale( );
    if( !changed && scale == _scale ) return false;
    _scale = scale;
    GWString file = GConcat( u"template", GCaseEquals( _palette, u"Paper" ) ? u"-paper" : u"",
                             getScalePart( getFactor( _scaleText, _scale ) ), u".xml" );
    if( file != PLAIN && !GFileExists( file ) )
    {
        GLOG( u"WARNING No skin '", file, u"', taking '", PLAIN, u"', ignoring." );
        file = PLAIN;
    }
    if( file == _file ) return false;
    _file = file;
    return true;
}
