#include "KezEvpn/FloodSetPaths.h"

namespace Kez {

// --- A path

std::optional< MplsDestConfig >
MplsFloodSetViaToVlanMacDestSet::config( const VlanMacDest & dest ) const {
  const auto * const number = vlanMacDestSetNote( dest );
  return number ? configOf( *number ) : std::nullopt;
}

std::optional< MplsDestConfig > MplsFloodSetViaToVlanMacDestSet::configOf( uint32_t number ) const {
  return number ? std::optional( configs_[ number ] ) : std::nullopt;
}

bool MplsFloodSetViaToVlanMacDestSet::configHas( const VlanMacDest & dest ) const {
  const auto * const number = vlanMacDestSetNote( dest );
  return number && *number;
}

std::optional< MplsDestConfig >
MplsFloodSetViaToVlanMacDestSet::configIs( const VlanMacDest & dest,
                                           const MplsDestConfig & config ) {
  auto * const number = vlanMacDestSetNote( dest );
  VEX_ASSERT( number );
  const auto before = configOf( *number );
  if ( before != config ) {
    const uint32_t former = std::exchange( *number, configs_.take( config ) );
    if ( former ) {
      configs_.drop( former );
    }
  }
  return before;
}

std::optional< MplsDestConfig >
MplsFloodSetViaToVlanMacDestSet::configDel( const VlanMacDest & dest ) {
  auto * const number = vlanMacDestSetNote( dest );
  const auto before = number ? configOf( *number ) : std::nullopt;
  if ( before ) {
    configs_.drop( std::exchange( *number, 0 ) );
  }
  return before;
}

// --- The destinations over paths

DestsOverPaths::Walk::Walk(
    const PathEntries::RangeOf< Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > > & paths, Of of )
    : paths_( paths.begin() ), of_( of ) {
  if ( paths_.valid() ) {
    dests_.emplace( ( *paths_ ).value );
    settle();
  }
}

DestsOverPaths::Walk & DestsOverPaths::Walk::operator++() {
  ++dests_->walk;
  settle();
  return *this;
}

// On to the next that it gives, or to the end.
void DestsOverPaths::Walk::settle() {
  for ( ;; ) {
    for ( auto & walk = dests_->walk; walk.valid(); ++walk ) {
      if ( of_ == Of::all || dests_->path->configHas( walk.key() ) ) {
        return;
      }
    }
    dests_.reset();
    ++paths_;
    if ( !paths_.valid() ) {
      return;
    }
    dests_.emplace( ( *paths_ ).value );
  }
}

// --- A tunnel

void TunnelVlanMacDestSet::pathIs( const Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > & path ) {
  paths_.findOrAdd( path->mplsFloodSetVia(), [ & ] { return path; } );
}

TunnelVlanMacDestSet::Dests TunnelVlanMacDestSet::vlanMacDestSet() const {
  return Dests( *this );
}

size_t TunnelVlanMacDestSet::Dests::size() const {
  size_t dests = 0;
  for ( const auto & [ via, path ] : tunnel_.paths() ) {
    dests += path->vlanMacDestSets();
  }
  return dests;
}

bool TunnelVlanMacDestSet::Dests::has( const VlanMacDest & dest ) const {
  if ( dest.dest.destType() != L2Rib::destTypeMpls_ ) {
    return false;
  }
  const auto * const path = tunnel_.paths_.find( mplsFloodSetVia( dest ) );
  return path && ( *path )->vlanMacDestSetHas( dest );
}

} // namespace Kez
