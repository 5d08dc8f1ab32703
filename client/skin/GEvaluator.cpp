#include "client/skin/GEvaluator.h"

#include "base/GPortable.h"
#include "base/GUtil.h"

#include <algorithm>
#include <boost/spirit/include/classic_chset.hpp>
#include <boost/spirit/include/classic_core.hpp>

namespace spirit = boost::spirit::classic;

namespace
{
// What stands on the evaluation stack while a text is parsed: the parts whose values, joined, are the entry's text.
using Stack = std::vector<GExpression>;

// Character classes are spelled out: the library's own ask the locale, and are undefined above 255.
const spirit::chset<char16_t> alnum_( u"a-zA-Z0-9" );
const spirit::chset<char16_t> nameTail_( u"a-zA-Z0-9._@" );
const spirit::chset<char16_t> special_( u"${" );

void append( Stack& eval, GWString text )
{
    eval.push_back( { { false, std::move( text ), -1 } } );
}

struct Grammar : spirit::grammar<Grammar>
{
    explicit Grammar( Stack& stack ) : target( stack ) {}

    template <typename Scanner>
    struct definition
    {
        explicit definition( const Grammar& self )
        {
            Stack& eval = self.target;
            const auto push_a = [&eval]( const char16_t* first, const char16_t* last )
            { append( eval, GWString( first, last ) ); };
            const auto push_char_a = [&eval]( char16_t character ) { append( eval, GWString( 1, character ) ); };
            const auto tolower_push_a = [&eval]( const char16_t* first, const char16_t* last )
            { append( eval, GToLower( GWStringView( first, static_cast<size_t>( last - first ) ) ) ); };
            const auto pop_eval_push_a = [&eval]( const char16_t*, const char16_t* )
            {
                GASSERT( eval.size( ) );
                eval.back( ).front( ).isName = true;
            };
            const auto pop2_concat_push_a = [&eval]( const char16_t*, const char16_t* )
            {
                GASSERT( eval.size( ) >= 2 );
                const GExpression newer = std::move( eval.back( ) );
                eval.pop_back( );
                eval.back( ).insert( eval.back( ).end( ), newer.begin( ), newer.end( ) );
            };

            top = element >> *( element[pop2_concat_push_a] );
            element = literal | variable | ( spirit::ch_p( u'{' ) >> element >> spirit::ch_p( u'}' ) ) |
                      spirit::ch_p( u'$' )[push_char_a];
            literal = ( +( ~special_ ) )[push_a];
            variable = ( spirit::ch_p( u'$' ) >> name )[pop_eval_push_a];
            name = ( alnum_ >> *nameTail_ )[tolower_push_a];
        }
        const spirit::rule<Scanner>& start( ) const { return top; }
        spirit::rule<Scanner> top, element, literal, variable, name;
    };
    Stack& target;
};

// Neighbouring literals become one.
void joinLiterals( GExpression& expression )
{
    GExpression joined;
    for( GExpressionPart& part : expression )
        if( !joined.empty( ) && !part.isName && !joined.back( ).isName )
            joined.back( ).text += part.text;
        else
            joined.push_back( std::move( part ) );
    expression = std::move( joined );
}
} // namespace

bool GEvaluator::parse( GWStringView text, GExpression& expression ) const
{
    expression.clear( );
    if( std::count( text.begin( ), text.end( ), u'{' ) > MAX_NESTING ) return false;
    Stack eval;
    const Grammar grammar( eval );
    spirit::parse( text.data( ), text.data( ) + text.size( ), grammar );
    if( !eval.empty( ) ) expression = std::move( eval.back( ) );
    joinLiterals( expression );
    return true;
}
