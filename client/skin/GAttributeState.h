// What an attribute stack works with, kept in a pool between passes so that its buffers are used again: the bindings of all scopes in
// one array, and for each name the newest binding. Names and parsed texts are shared by all stacks of the thread.
#pragma once

#include "client/skin/GCalculator.h"
#include "client/skin/GEvaluator.h"
#include "platform/GNotify.h"
#include "runtime/GInstance.h"

#include <memory>
#include <unordered_map>

// Lets maps of wide text be searched by a view.
struct GWStringHash
{
    using is_transparent = void;
    size_t operator( )( GWStringView text ) const { return std::hash<GWStringView>{ }( text ); }
};
template <typename T>
using GWStringMap = std::unordered_map<GWString, T, GWStringHash, std::equal_to<>>;

// A map of texts with a shortcut: a text is looked for first where the last one at its address was found. What is found is always
// compared, so that an address may be used again for anything.
template <typename T>
class GWStringTable
{
public:
    using Entry = std::pair<const GWString, T>;

    Entry* find( GWStringView text )
    {
        Entry*& shortcut = _shortcuts[_slot( text )];
        if( shortcut && shortcut->first == text ) return shortcut;
        const auto found = _map.find( text );
        return found == _map.end( ) ? nullptr : shortcut = &*found;
    }
    // The text must not be there yet.
    Entry* insert( GWStringView text, T value ) { return &*_map.emplace( GWString( text ), std::move( value ) ).first; }
    void clear( )
    {
        _map.clear( );
        _shortcuts.assign( SLOTS, nullptr );
    }
    size_t size( ) const { return _map.size( ); }

private:
    static constexpr size_t SLOTS = 8192;
    static size_t _slot( GWStringView text )
    {
        const auto address = static_cast<uint64_t>( reinterpret_cast<uintptr_t>( text.data( ) ) );
        return static_cast<size_t>( ( address * 0x9E3779B97F4A7C15u ) >> 32u ) % SLOTS;
    }

    GWStringMap<T> _map;
    std::vector<Entry*> _shortcuts = std::vector<Entry*>( SLOTS, nullptr );
};

// Numbers names and keeps parsed texts. What comes from the skin is bounded by the skin; what comes out of values is bounded here.
class GExpressionTable
{
public:
    static constexpr size_t MAX_EXPRESSIONS = 4096;
    static constexpr size_t MAX_SYMBOLS = 16384;
    static constexpr size_t MAX_KEPT_LENGTH = 1024;

    // The number of a name; a new name gets the next one.
    int intern( GWStringView name );
    int find( GWStringView name ); // -1 when unknown.
    // The parsed text, or null when it nests too deep. It holds until the next call.
    const GExpression* parse( GWStringView text );
    size_t getSymbolCount( ) const { return _symbols.size( ); }
    size_t getExpressionCount( ) const { return _expressions.size( ); }

private:
    void _resolve( GExpression& expression );

    GEvaluator _evaluator;
    GWStringTable<int> _symbols;
    GWStringTable<GExpression> _expressions;
    GExpression _passing; // A text that is not kept.
};

class GAttributeState
{
public:
    // Bounds of one expansion, in rounds and characters.
    static constexpr int MAX_ROUNDS = 128;
    static constexpr size_t MAX_EXPANDED_LENGTH = 65536;  // of texts that still hold names, over all rounds
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
    const GCalculator& getCalculator( ) const { return _calculator; }

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
    GWStringView _stop( GWStringView expression, GWStringView reached ) const;

    GInstance* _instance = nullptr;
    GExpressionTable* _table = nullptr;
    GCalculator _calculator;
    std::vector<Scope> _stateStack;
    std::vector<Binding> _bindings;
    int _bindingCount = 0;
    std::vector<int> _newest;       // By symbol: index into _bindings, -1 for none.
    std::vector<BoardValue> _board; // By symbol.
    GWString _work;
    GWString _next;
    GWString _value;
};
