#include "shell/Selection.h"

#include "Vex/Pattern.h"

#include <algorithm>

namespace KezShell {

using Vex::String;

namespace {

bool isDigit( char c ) {
  return c >= '0' && c <= '9';
}

// Numbers within texts count as numbers: Ethernet9 comes before Ethernet10.
bool comesBefore( std::string_view a, std::string_view b ) {
  size_t i = 0;
  size_t j = 0;
  while ( i < a.size() && j < b.size() ) {
    if ( !isDigit( a[ i ] ) || !isDigit( b[ j ] ) ) {
      if ( a[ i ] != b[ j ] ) {
        return a[ i ] < b[ j ];
      }
      ++i;
      ++j;
      continue;
    }
    const auto number = []( std::string_view text, size_t & at ) {
      const size_t begin = std::min( text.find_first_not_of( '0', at ), text.size() );
      at = begin;
      while ( at < text.size() && isDigit( text[ at ] ) ) {
        ++at;
      }
      return text.substr( begin, at - begin );
    };
    const auto x = number( a, i );
    const auto y = number( b, j );
    if ( x != y ) {
      return x.size() != y.size() ? x.size() < y.size() : x < y;
    }
  }
  return a.size() - i < b.size() - j;
}

class SortedWalk : public Vex::ReflectedWalk {
public:
  explicit SortedWalk( Vex::ReflectedWalk & members ) {
    while ( auto member = members.next() ) {
      members_.push_back( std::move( *member ) );
    }
    std::sort( members_.begin(), members_.end(),
               []( const auto & a, const auto & b ) { return comesBefore( a.key, b.key ); } );
  }
  std::optional< Vex::ReflectedMember > next() override {
    return next_ == members_.size() ? std::nullopt : std::optional( members_[ next_++ ] );
  }

private:
  std::vector< Vex::ReflectedMember > members_;
  size_t next_ = 0;
};

} // namespace

std::string_view Selection::takePattern( std::string_view word ) {
  const auto open = word.rfind( '[' );
  if ( open == word.npos || !word.ends_with( ']' ) || !Vex::isPattern( word.substr( open ) ) ) {
    return word;
  }
  pattern_ = word.substr( open + 1, word.size() - open - 2 );
  return word.substr( 0, open );
}

void Selection::takeOptions( Vex::TextCursor & in ) {
  while ( !in.done() ) {
    const size_t offset = in.offset();
    const auto word = takeWord( in );
    if ( word == "count" ) {
      countsAlone_ = true;
    } else if ( word == "sorted" ) {
      sorted_ = true;
    } else if ( word == "limit" ) {
      const size_t column = in.offset() + 1;
      const auto number = takeWord( in );
      limit_ = inTextAt( column, [ & ] { return Vex::parseBriefly< size_t >( number ); } );
    } else {
      failAt( offset, "count, limit N, sorted or the end of the line", word );
    }
  }
}

std::unique_ptr< Vex::ReflectedWalk > Selection::walk( const Vex::AttributeType & attribute,
                                                       const Vex::Entity & entity ) const {
  auto members = attribute.walk( entity );
  return sorted_ ? std::make_unique< SortedWalk >( *members ) : std::move( members );
}

bool Selection::takes( const Vex::ReflectedMember & member ) const {
  return pattern_.empty() || Vex::matches( pattern_, member.key );
}

} // namespace KezShell
