#include "client/skin/GCalculator.h"

#include "base/GPortable.h"

#include <algorithm>
#include <boost/spirit/include/classic_chset.hpp>
#include <boost/spirit/include/classic_core.hpp>
#include <csignal>
#include <limits>

namespace spirit = boost::spirit::classic;

namespace
{
using Stack = std::vector<int32_t>;
constexpr int32_t HIGHEST = std::numeric_limits<int32_t>::max( );

const spirit::chset<char16_t> digit_( u"0-9" );
const spirit::chset<char16_t> space_( u" \t\n\v\f\r" );

int32_t wrap( uint32_t value )
{
    return static_cast<int32_t>( value );
}

int32_t divide( int32_t a, int32_t b )
{
    // Some processors answer a division by zero with 0; here it is the same fault everywhere.
    if( b == 0 ) std::raise( SIGFPE );
    if( b == 0 ) return 0;
    return b == -1 ? wrap( 0u - static_cast<uint32_t>( a ) ) : a / b;
}

int32_t apply( char operation, int32_t a, int32_t b )
{
    const auto left = static_cast<uint32_t>( a );
    const auto right = static_cast<uint32_t>( b );
    if( operation == '+' ) return wrap( left + right );
    if( operation == '-' ) return wrap( left - right );
    if( operation == '*' ) return wrap( left * right );
    return divide( a, b );
}

void applyTop( Stack& stack, char operation )
{
    GASSERT( stack.size( ) >= 2 );
    const int32_t right = stack.back( );
    stack.pop_back( );
    stack.back( ) = apply( operation, stack.back( ), right );
}

int32_t readInteger( const char16_t* first, const char16_t* last )
{
    int64_t value = 0;
    for( ; first != last; ++first ) value = std::min<int64_t>( value * 10 + ( *first - u'0' ), HIGHEST );
    return static_cast<int32_t>( value );
}

struct Grammar : spirit::grammar<Grammar>
{
    explicit Grammar( Stack& stack ) : target( stack ) {}

    template <typename Scanner>
    struct definition
    {
        explicit definition( const Grammar& self )
        {
            Stack& stack = self.target;
            using Text = const char16_t*;
            const auto push_int = [&stack]( Text first, Text last ) { stack.push_back( readInteger( first, last ) ); };
            const auto do_add = [&stack]( Text, Text ) { applyTop( stack, '+' ); };
            const auto do_subtract = [&stack]( Text, Text ) { applyTop( stack, '-' ); };
            const auto do_multiply = [&stack]( Text, Text ) { applyTop( stack, '*' ); };
            const auto do_divide = [&stack]( Text, Text ) { applyTop( stack, '/' ); };
            const auto do_negate = [&stack]( Text, Text )
            {
                GASSERT( stack.size( ) );
                stack.back( ) = apply( '-', 0, stack.back( ) );
            };
            const auto token = []( char16_t character ) { return spirit::ch_p( character ); };

            expression = term >> *( ( token( u'+' ) >> term )[do_add] | ( token( u'-' ) >> term )[do_subtract] );
            term = factor >> *( ( token( u'*' ) >> factor )[do_multiply] | ( token( u'/' ) >> factor )[do_divide] );
            factor = integer | ( token( u'(' ) >> expression >> token( u')' ) ) |
                     ( token( u'-' ) >> factor )[do_negate] | ( token( u'+' ) >> factor );
            integer = spirit::lexeme_d[( +digit_ )[push_int]];
        }
        const spirit::rule<Scanner>& start( ) const { return expression; }
        spirit::rule<Scanner> expression, term, factor, integer;
    };
    Stack& target;
};
} // namespace

bool GCalculator::readPlain( GWStringView text, int32_t& value )
{
    if( text.empty( ) || text.size( ) > 9 ) return false;
    int32_t number = 0;
    for( const char16_t character : text )
    {
        if( character < u'0' || character > u'9' ) return false;
        number = number * 10 + ( character - u'0' );
    }
    value = number;
    return true;
}

bool GCalculator::calc( GWStringView text, int32_t& value ) const
{
    value = 0;
    if( text.empty( ) ) return false;
    if( readPlain( text, value ) ) return true;
    text = text.substr( 0, MAX_LENGTH );
    Stack stack;
    const Grammar grammar( stack );
    spirit::parse( text.data( ), text.data( ) + text.size( ), grammar, space_ );
    if( stack.empty( ) ) return false;
    value = stack.back( );
    return true;
}
