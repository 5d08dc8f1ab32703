#include "client/skin/GAttributeStack.h"

#include "client/skin/GAttributeState.h"

namespace
{
template <typename T>
bool replace( T& value, const T& newValue )
{
    if( value == newValue ) return false;
    value = newValue;
    return true;
}
} // namespace

GAttributeStack::GAttributeStack( GInstance* instance, GNotifyHandle notifyListener )
{
    GPRECONDITION( instance && notifyListener );
    _state = GAttributeState::acquire( instance );
    _state->push( notifyListener );
}

GAttributeStack::~GAttributeStack( )
{
    GAttributeState::release( std::move( _state ) );
}

void GAttributeStack::push( )
{
    _state->push( _state->getListener( ) );
}

void GAttributeStack::push( GNotifyHandle listener )
{
    GPRECONDITION( listener );
    _state->push( listener );
}

void GAttributeStack::push( const GWString& path, const GAttributeList& attributes )
{
    push( );
    _state->set( u"path", path );
    for( const auto& [name, value] : attributes ) _state->set( name, _state->eval( value ) );
}

void GAttributeStack::pop( )
{
    _state->pop( );
}

GWString GAttributeStack::get( GWStringView name )
{
    GWString value;
    _state->append( -1, name, value );
    return value;
}

void GAttributeStack::set( GWStringView name, GWStringView value )
{
    _state->set( name, value );
}

void GAttributeStack::set( GWStringView name, int value )
{
    _state->set( name, GNumber( value ) );
}

void GAttributeStack::set( GWStringView name, bool value )
{
    _state->set( name, value ? u"true" : u"false" );
}

GNotifyHandle GAttributeStack::getListener( ) const
{
    return _state->getListener( );
}

GWString GAttributeStack::eval( GWStringView expression )
{
    return GWString( _state->eval( expression ) );
}

int GAttributeStack::calc( GWStringView expression )
{
    int32_t value = 0;
    _state->calc( _state->eval( expression ), value );
    return value;
}

bool GAttributeStack::test( GWStringView expression )
{
    const GWStringView text = _state->eval( expression );
    if( GCaseEquals( text, u"true" ) ) return true;
    int32_t value = 0;
    return _state->calc( text, value ) && value != 0;
}

void GAttributeStack::forgetWarnings( )
{
    GAttributeState::forgetWarnings( );
}

bool GAttributeStack::read( GWStringView expression, GWString& value )
{
    const GWStringView text = _state->eval( expression );
    if( text == value ) return false;
    value.assign( text );
    return true;
}

bool GAttributeStack::read( GWStringView expression, int& value )
{
    return replace( value, calc( expression ) );
}

bool GAttributeStack::read( GWStringView expression, bool& value )
{
    return replace( value, test( expression ) );
}
