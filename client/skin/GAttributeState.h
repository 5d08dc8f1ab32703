// What an attribute stack works with, kept in a pool between passes so that its buffers are used again: the bindings of all scopes in
// one array, and for each name the newest binding. Names and parsed texts are shared by all stacks of the thread.
#pragma once

#include "client/skin/GCalculator.h"
#include "client/skin/GEvaluator.h"
#include "client/skin/GTextTable.h"
#include "platform/GNotify.h"
#include "runtime/GInstance.h"

#include <memory>

// Numbers names and keeps parsed texts. What comes from the skin is bounded by the skin; what comes out of values is bounded here.
class GExpressionTable
{
public:
    static constexpr size_t MAX_EXPRESSIONS = 4096;
    static constexpr size_t MAX_SYMBOLS = 16384;
    static constexpr size_t MAX_KEPT_LENGTH = 1024;
    static constexpr size_t MAX_CALCULATIONS = 4096;
    static constexpr size_t MAX_WARNINGS = 256;

    // The number of a name; a new name gets the next one.
    int intern( GWStringView name );
    int find( GWStringView name ); // -1 when unknown.
    // The parsed text, or null when it nests too deep. It holds until the next call.
    const GExpression* parse( GWStringView text );
    // What the calculator makes of a text, which it looks at once.
    bool calc( GWStringView text, int32_t& value );
    // True the first time: what is wrong in a skin is wrong in every pass.
    bool warnOnce( GWStringView text );
    void forgetWarnings( ) { _warnings.clear( ); }
    size_t getSymbolCount( ) const { return _symbols.size( ); }
    size_t getExpressionCount( ) const { return _expressions.size( ); }
    size_t getCalculationCount( ) const { return _calculations.size( ); }

private:
    void _resolve( GExpression& expression );

    GEvaluator _evaluator;
    GWStringTable<int> _symbols;
    GWStringTable<GExpression> _expressions;
    GExpression _passing; // A text that is not kept.
    struct Calculation
    {
        bool matched = false;
        int32_t value = 0;
    };
    GCalculator _calculator;
    GWStringTable<Calculation, 1024> _calculations;
    GWStringMap<bool> _warnings;
};

class GAttributeState
{
public:
    // Bounds of one expansion, in rounds and characters.
    static constexpr int MAX_ROUNDS = 128;
    static constexpr size_t MAX_EXPANDED_LENGTH = 32768;  // of texts that still hold names, over all rounds
    static constexpr size_t MAX_VALUE_LENGTH = 4u << 20u; // of any text
    // Longer values are read from the blackboard each time.
    static constexpr size_t MAX_KEPT_VALUE = 4096;

    static std::unique_ptr<GAttributeState> acquire( GInstance* instance );
    static void release( std::unique_ptr<GAttributeState> state );

    void push( GNotifyHandle listener );
    void pop( );
    GNotifyHandle getListener( ) const;
    void set( GWStringView name, GWStringView value );
    // Appends the value of a name.
    void append( int symbol, GWStringView name, GWString& out );
    // The value; it holds until the next evaluation.
    GWStringView eval( GWStringView expression );
    // The number at the front of an evaluated text; false when there is none.
    bool calc( GWStringView text, int32_t& value ) { return _table->calc( text, value ); }
    // What was warned of is warned of again: for a new skin.
    static void forgetWarnings( );

private:
    struct Binding
    {
        int symbol = 0;
        int shadowed = -1; // The outer binding of the same name.
        GWString value;
    };
    struct Scope
    {
        GNotifyHandle listener = nullptr;
        int firstBinding = 0;
    };
    // What the blackboard held under one of its generations.
    struct BoardValue
    {
        uint64_t generation = 0;
        GWString value;
    };
    void _appendFromBoard( int symbol, GWStringView name, GWString& out );
    // Replaces the names of `work` once; false when the limits stop it.
    bool _expand( GWStringView work, GWString& out );
    GWStringView _stop( GWStringView expression, GWStringView reached );

    GInstance* _instance = nullptr;
    GExpressionTable* _table = nullptr;
    std::vector<Scope> _stateStack;
    std::vector<Binding> _bindings;
    int _bindingCount = 0;
    std::vector<int> _newest;       // By symbol: index into _bindings, -1 for none.
    std::vector<BoardValue> _board; // By symbol.
    GWString _work;
    GWString _next;
    GWString _value;
};
