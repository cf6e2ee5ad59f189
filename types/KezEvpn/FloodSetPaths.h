// How machines keep flood-set destinations: each once, under its path, beside the number of the
// configuration that it is published with, if any. A tunnel has its paths. What else the rules
// name, the destinations of a tunnel and the configuration of each, is computed of that.
#pragma once

#include "KezEvpn/FloodSets.h"
#include "Vex/Interned.h"

#include <optional>

namespace Kez {

// The flood-set destinations over a path.
class MplsFloodSetViaToVlanMacDestSet : public MachineState {
  VEX_ENTITY( MplsFloodSetViaToVlanMacDestSet, "Kez::MplsFloodSetViaToVlanMacDestSet" )
  VEX_KEY( MplsFloodSetViaToVlanMacDestSet, mplsFloodSetVia, MplsFloodSetVia )
  // Each with the number of its configuration in `configs_`, 0 without one.
  VEX_NOTED_SET( 1, vlanMacDestSet, VlanMacDest, uint32_t )
  VEX_ATTRIBUTES( vlanMacDestSet )

  // None for one that has none, or is not here.
  std::optional< MplsDestConfig > config( const VlanMacDest & dest ) const;
  bool configHas( const VlanMacDest & dest ) const;
  // What it had before. Asserts that the destination is here.
  std::optional< MplsDestConfig > configIs( const VlanMacDest & dest,
                                            const MplsDestConfig & config );
  std::optional< MplsDestConfig > configDel( const VlanMacDest & dest );

private:
  // None for 0.
  std::optional< MplsDestConfig > configOf( uint32_t number ) const;

  Vex::Interned< MplsDestConfig > configs_;
};

using PathEntries = Vex::Collection< MplsFloodSetVia, Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > >;

// The destinations over some paths, one path after the other; all, or those that have a
// configuration.
class DestsOverPaths {
public:
  enum class Of { all, configured };
  DestsOverPaths( const PathEntries & paths, Of of ) : paths_( paths.range() ), of_( of ) {}

  // As a collection's own.
  class Walk {
  public:
    Walk( const PathEntries::RangeOf< Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > > & paths,
          Of of );
    Walk( const Walk & ) = delete;
    Walk & operator=( const Walk & ) = delete;

    bool operator!=( std::nullptr_t ) const { return dests_.has_value(); }
    Walk & operator++();
    VlanMacDest key() const { return dests_->walk.key(); }
    VlanMacDest operator*() const { return key(); }
    // Of the path that it goes over.
    const MplsFloodSetViaToVlanMacDestSet & path() const { return *dests_->path; }

  private:
    struct Dests {
      explicit Dests( const Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > & of )
          : path( of ), walk( of->vlanMacDestSet().begin() ) {}
      const Vex::Ptr< const MplsFloodSetViaToVlanMacDestSet > path;
      decltype( path->vlanMacDestSet().begin() ) walk;
    };
    void settle();

    decltype( std::declval< PathEntries >().range().begin() ) paths_;
    const Of of_;
    std::optional< Dests > dests_;
  };
  Walk begin() const { return { paths_, of_ }; }
  std::nullptr_t end() const { return nullptr; }

private:
  decltype( std::declval< PathEntries >().range() ) paths_;
  Of of_;
};

// The flood-set destinations over a tunnel.
class TunnelVlanMacDestSet : public MachineState {
public:
  // Of all its paths.
  class Dests {
  public:
    using Key = VlanMacDest;
    explicit Dests( const TunnelVlanMacDestSet & tunnel ) : tunnel_( tunnel ) {}

    size_t size() const;
    bool has( const VlanMacDest & dest ) const;
    DestsOverPaths range() const { return { tunnel_.paths_, DestsOverPaths::Of::all }; }

  private:
    const TunnelVlanMacDestSet & tunnel_;
  };

  VEX_ENTITY( TunnelVlanMacDestSet, "Kez::TunnelVlanMacDestSet" )
  VEX_KEY( TunnelVlanMacDestSet, tunnelId, Tunnel::TunnelTable::TunnelId )
  VEX_COMPUTED_SET( 1, vlanMacDestSet, Dests )
  VEX_ATTRIBUTES( vlanMacDestSet )

  auto paths() const { return paths_.range< Vex::Ptr< const MplsFloodSetViaToVlanMacDestSet > >(); }
  void pathIs( const Vex::Ptr< MplsFloodSetViaToVlanMacDestSet > & path );
  void pathDel( const MplsFloodSetVia & via ) { paths_.erase( via ); }

private:
  PathEntries paths_;
};

} // namespace Kez
