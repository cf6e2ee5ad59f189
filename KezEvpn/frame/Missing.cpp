#include "KezEvpn/frame/Missing.h"

namespace Kez {

namespace {

// No more groups of a machine, and no more names of a group, than somebody reads.
constexpr size_t mostGroups = 24;
constexpr size_t mostNames = 8;

// What is known comes before what is not.
bool isEarlier( const std::optional< double > & a, const std::optional< double > & b ) {
  return a && ( !b || *a < *b );
}

} // namespace

Missing::Group & Missing::groupOf( const Wait & wait, std::string_view what,
                                   std::string_view reason ) {
  Vex::TextBuffer key;
  appendText( key, wait.standing );
  key.append( ' ' );
  key.append( what );
  key.append( ' ' );
  key.append( reason );
  auto at = groups_.find( key.view() );
  if ( at == groups_.end() && groups_.size() >= mostGroups ) {
    what = "other subject";
    reason = "waiting for other reasons";
    at = groups_.find( reason );
    key.clear();
    key.append( reason );
  }
  if ( at == groups_.end() ) {
    at = groups_
             .emplace( key.str(), Group{ wait, Vex::String( what ), Vex::String( reason ), 0, {} } )
             .first;
  }
  return at->second;
}

void Missing::addTo( Group & group, const Wait & wait, size_t count, const Subject * subject ) {
  group.count += count;
  group.wait.standing = std::max( group.wait.standing, wait.standing );
  if ( isEarlier( wait.since, group.wait.since ) ) {
    group.wait.since = wait.since;
  }
  if ( isEarlier( wait.next, group.wait.next ) ) {
    group.wait.next = wait.next;
  }
  auto & first = group.first;
  if ( !subject || ( first.size() == mostNames && !isEarlier( wait.since, first.back().since ) ) ) {
    return;
  }
  const auto at = std::find_if( first.begin(), first.end(), [ & ]( const Waiter & each ) {
    return isEarlier( wait.since, each.since );
  } );
  first.insert( at, { wait.since, *subject } );
  if ( first.size() > mostNames ) {
    first.pop_back();
  }
}

bool isLonger( const Missing::Wait & a, const Missing::Wait & b ) {
  return isEarlier( a.since, b.since ) || ( !a.since && !b.since && a.standing > b.standing );
}

std::vector< Missing::Group > Missing::groups() const {
  std::vector< Group > groups;
  groups.reserve( groups_.size() );
  for ( const auto & [ key, group ] : groups_ ) {
    groups.push_back( group );
  }
  std::stable_sort( groups.begin(), groups.end(),
                    []( const Group & a, const Group & b ) { return isLonger( a.wait, b.wait ); } );
  return groups;
}

Vex::String text( const Missing::Group & group ) {
  Vex::TextBuffer out;
  appendText( out, Count{ group.count, group.what } );
  out.append( ' ' );
  out.append( group.reason );
  if ( group.wait.next ) {
    out.append( group.wait.standing == Standing::refused ? ", next try " : ", next look " );
    appendText( out, Due{ group.wait.next, {} } );
  }
  for ( size_t i = 0; i < group.first.size(); ++i ) {
    out.append( i == 0 ? ": " : ", " );
    out.append( group.first[ i ].subject.keyText() );
  }
  if ( !group.first.empty() && group.count > group.first.size() ) {
    out.append( " and " );
    appendText( out, group.count - group.first.size() );
    out.append( " more" );
  }
  return out.str();
}

void explainGroups( const Missing & missing, Explanation & out ) {
  for ( const auto & group : missing.groups() ) {
    out.add( group.wait.standing, text( group ) );
    out.nextTryIs( group.wait.next );
  }
}

} // namespace Kez
