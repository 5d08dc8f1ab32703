#include "client/skin/GAttributeState.h"

namespace
{
GExpressionTable& sharedTable( )
{
    static thread_local GExpressionTable table;
    return table;
}
std::vector<std::unique_ptr<GAttributeState>>& pool( )
{
    static thread_local std::vector<std::unique_ptr<GAttributeState>> states;
    return states;
}
} // namespace

int GExpressionTable::intern( GWStringView name )
{
    if( const auto* entry = _symbols.find( name ) ) return entry->second;
    return _symbols.insert( name, static_cast<int>( _symbols.size( ) ) )->second;
}

int GExpressionTable::find( GWStringView name )
{
    const auto* entry = _symbols.find( name );
    return entry ? entry->second : -1;
}

void GExpressionTable::_resolve( GExpression& expression )
{
    for( GExpressionPart& part : expression )
        if( part.isName ) part.symbol = _symbols.size( ) < MAX_SYMBOLS ? intern( part.text ) : find( part.text );
}

const GExpression* GExpressionTable::parse( GWStringView text )
{
    if( const auto* entry = _expressions.find( text ) ) return &entry->second;
    if( !_evaluator.parse( text, _passing ) ) return nullptr;
    if( text.size( ) > MAX_KEPT_LENGTH ) return &_passing;
    if( _expressions.size( ) >= MAX_EXPRESSIONS ) _expressions.clear( );
    _resolve( _passing );
    return &_expressions.insert( text, std::move( _passing ) )->second;
}

bool GExpressionTable::calc( GWStringView text, int32_t& value )
{
    if( GCalculator::readPlain( text, value ) ) return true;
    if( const auto* entry = _calculations.find( text ) )
    {
        value = entry->second.value;
        return entry->second.matched;
    }
    const bool matched = _calculator.calc( text, value );
    if( text.size( ) > MAX_KEPT_LENGTH ) return matched;
    if( _calculations.size( ) >= MAX_CALCULATIONS ) _calculations.clear( );
    _calculations.insert( text, { matched, value } );
    return matched;
}

bool GExpressionTable::warnOnce( GWStringView text )
{
    if( _warnings.find( text ) != _warnings.end( ) ) return false;
    if( _warnings.size( ) >= MAX_WARNINGS ) _warnings.clear( );
    _warnings.emplace( GWString( text ), true );
    return true;
}

void GAttributeState::forgetWarnings( )
{
    sharedTable( ).forgetWarnings( );
}

std::unique_ptr<GAttributeState> GAttributeState::acquire( GInstance* instance )
{
    std::unique_ptr<GAttributeState> state;
    if( pool( ).empty( ) )
        state = std::make_unique<GAttributeState>( );
    else
    {
        state = std::move( pool( ).back( ) );
        pool( ).pop_back( );
    }
    state->_instance = instance;
    state->_table = &sharedTable( );
    return state;
}

void GAttributeState::release( std::unique_ptr<GAttributeState> state )
{
    while( !state->_stateStack.empty( ) ) state->pop( );
    state->_instance = nullptr;
    pool( ).push_back( std::move( state ) );
}

void GAttributeState::push( GNotifyHandle listener )
{
    _stateStack.push_back( { listener, _bindingCount } );
}

void GAttributeState::pop( )
{
    GASSERT( !_stateStack.empty( ) );
    const int first = _stateStack.back( ).firstBinding;
    while( _bindingCount > first )
    {
        const Binding& binding = _bindings[static_cast<size_t>( --_bindingCount )];
        _newest[static_cast<size_t>( binding.symbol )] = binding.shadowed;
    }
    _stateStack.pop_back( );
}

GNotifyHandle GAttributeState::getListener( ) const
{
    GASSERT( !_stateStack.empty( ) );
    return _stateStack.back( ).listener;
}

void GAttributeState::set( GWStringView name, GWStringView value )
{
    GASSERT( !_stateStack.empty( ) );
    const int symbol = _table->intern( name );
    if( static_cast<size_t>( symbol ) >= _newest.size( ) ) _newest.resize( static_cast<size_t>( symbol ) + 64, -1 );
    int& newest = _newest[static_cast<size_t>( symbol )];
    if( newest < _stateStack.back( ).firstBinding )
    {
        if( static_cast<size_t>( _bindingCount ) == _bindings.size( ) ) _bindings.emplace_back( );
        Binding& binding = _bindings[static_cast<size_t>( _bindingCount )];
        binding.symbol = symbol;
        binding.shadowed = newest;
        newest = _bindingCount++;
    }
    _bindings[static_cast<size_t>( newest )].value.assign( value );
}

void GAttributeState::append( int symbol, GWStringView name, GWString& out )
{
    if( name.empty( ) ) return;
    if( symbol < 0 ) symbol = _table->find( name );
    const int newest =
        symbol >= 0 && static_cast<size_t>( symbol ) < _newest.size( ) ? _newest[static_cast<size_t>( symbol )] : -1;
    if( newest >= 0 )
        out += _bindings[static_cast<size_t>( newest )].value;
    else
        _appendFromBoard( symbol, name, out );
}

void GAttributeState::_appendFromBoard( int symbol, GWStringView name, GWString& out )
{
    if( symbol < 0 )
    {
        _instance->get( name, _value );
        out += _value;
        return;
    }
    if( static_cast<size_t>( symbol ) >= _board.size( ) ) _board.resize( static_cast<size_t>( symbol ) + 64 );
    BoardValue& kept = _board[static_cast<size_t>( symbol )];
    // The number is taken first: a change meanwhile makes the value newer than its number, and it is read again.
    const uint64_t generation = _instance->getGeneration( );
    if( kept.generation != generation )
    {
        _instance->get( name, kept.value );
        kept.generation = generation;
    }
    out += kept.value;
    if( kept.value.size( ) > MAX_KEPT_VALUE ) kept = BoardValue( );
}

GWStringView GAttributeState::eval( GWStringView expression )
{
    if( expression.find( u'$' ) == GWStringView::npos ) return expression;
    GWStringView work = expression;
    size_t parsed = 0;
    for( int round = 0; round < MAX_ROUNDS; ++round )
    {
        parsed += work.size( );
        if( parsed > MAX_EXPANDED_LENGTH || !_expand( work, _next ) ) return _stop( expression, work );
        const bool unchanged = work == _next;
        _work.swap( _next );
        work = _work;
        if( unchanged || work.find( u'$' ) == GWStringView::npos ) return work;
    }
    return _stop( expression, work );
}

bool GAttributeState::_expand( GWStringView work, GWString& out )
{
    out.clear( );
    const GExpression* parts = _table->parse( work );
    if( !parts ) return false;
    for( const GExpressionPart& part : *parts )
    {
        if( part.isName )
            append( part.symbol, part.text, out );
        else
            out += part.text;
        if( out.size( ) > MAX_VALUE_LENGTH ) return false;
    }
    return true;
}

GWStringView GAttributeState::_stop( GWStringView expression, GWStringView reached )
{
    constexpr size_t MAX_SHOWN = 64;
    GWString path;
    append( -1, u"path", path );
    const GWString warning = GConcat( u"WARNING Expression '", expression.substr( 0, MAX_SHOWN ), u"' of '", path,
                                      u"' does not end, ignoring." );
    if( _table->warnOnce( warning ) ) GLOG( warning );
    return reached;
}
