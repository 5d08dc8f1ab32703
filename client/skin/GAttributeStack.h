// The scopes of one update pass: each node pushes its attributes, a name is looked up from the innermost scope outward and last on
// the blackboard. Expressions are parsed once and replayed; a pass over unchanged texts allocates nothing here.
// User-interface thread; scopes are pushed and popped in pairs.
#pragma once

#include "platform/GNotify.h"
#include "runtime/GInstance.h"

#include <memory>
#include <utility>

// (lower-case name, raw value) in the order of the file.
using GAttributeList = std::vector<std::pair<GWString, GWString>>;

class GAttributeState;

class GAttributeStack
{
public:
    // Precondition: "instance && notifyListener"; both are borrowed. Opens the first, empty scope.
    GAttributeStack( GInstance* instance, GNotifyHandle notifyListener );
    ~GAttributeStack( );
    GAttributeStack( const GAttributeStack& ) = delete;
    GAttributeStack& operator=( const GAttributeStack& ) = delete;

    // A new scope that keeps the listener of the one below, or takes another (precondition "listener").
    void push( );
    void push( GNotifyHandle listener );
    // A new scope with `path` and every attribute, evaluated in order: a later one sees the earlier ones.
    void push( const GWString& path, const GAttributeList& attributes );
    // Asserts "!_stateStack.empty( )".
    void pop( );

    // Raw lookup, exact in the scopes and folded on the blackboard; empty when unknown.
    GWString get( GWStringView name );
    // Writes into the top scope alone. Asserts "!_stateStack.empty( )".
    void set( GWStringView name, GWStringView value );
    void set( GWStringView name, const GWString& value ) { set( name, GWStringView( value ) ); }
    void set( GWStringView name, const char16_t* value ) { set( name, GWStringView( value ) ); }
    void set( GWStringView name, int value );
    void set( GWStringView name, bool value );
    // What watches made below this scope report to.
    GNotifyHandle getListener( ) const;

    // Expands names until none is left or a round changes nothing. An expansion that does not end stops at a limit with a warning.
    GWString eval( GWStringView expression );
    // Signed 32-bit arithmetic on the evaluated text, as far as it matches; 0 when nothing does. A zero divisor faults.
    int calc( GWStringView expression );
    // True for "true" in any case or a number other than 0.
    bool test( GWStringView expression );

    // An expression that does not end is warned of once, with the path of its node: after this, once more.
    static void forgetWarnings( );

    // Evaluates into a member and says whether it changed: the way a node reads a setting.
    bool read( GWStringView expression, GWString& value );
    bool read( GWStringView expression, int& value );
    bool read( GWStringView expression, bool& value );
    // The same for several: an expression and a member by turns. True when any changed.
    template <typename VALUE, typename... REST>
    bool readEach( GWStringView expression, VALUE& value, REST&&... rest )
    {
        bool changed = read( expression, value );
        if constexpr( sizeof...( rest ) > 0 ) changed |= readEach( rest... );
        return changed;
    }

private:
    std::unique_ptr<GAttributeState> _state;
};
