#include "KezEvpn/FloodSetPaths.h"

namespace Kez {

// --- A path

std::optional< MplsDestConfig >
MplsFloodSetViaToDestConfigs::config( const VlanMacDest & dest ) const {
  const auto * const number = vlanMacDestSetNote( dest );
  return number && *number ? std::optional( configs_[ *number ] ) : std::nullopt;
}

bool MplsFloodSetViaToDestConfigs::configHas( const VlanMacDest & dest ) const {
  const auto * const number = vlanMacDestSetNote( dest );
  return number && *number;
}

uint32_t & MplsFloodSetViaToDestConfigs::numberOf( const VlanMacDest & dest ) {
  auto * const number = vlanMacDestSetNote( dest );
  VEX_ASSERT( number );
  return *number;
}

void MplsFloodSetViaToDestConfigs::configIs( const VlanMacDest & dest,
                                             const MplsDestConfig & config ) {
  uint32_t & number = numberOf( dest );
  const uint32_t before = number;
  number = configs_.take( config );
  if ( before ) {
    configs_.drop( before );
  }
}

void MplsFloodSetViaToDestConfigs::configDel( const VlanMacDest & dest ) {
  uint32_t & number = numberOf( dest );
  configs_.drop( number );
  number = 0;
}

// --- The destinations over paths

DestsOverPaths::Walk::Walk(
    const PathEntries::RangeOf< Vex::Ptr< MplsFloodSetViaToDestConfigs > > & paths, Of of )
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

void TunnelVlanMacDestSet::pathIs( const Vex::Ptr< MplsFloodSetViaToDestConfigs > & path ) {
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
