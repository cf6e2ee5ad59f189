// What can be asked of the simulated switch, in one table: the operations, the table of the switch
// that each acts on, and how it can fail. Fault plans, counters, records and the simulation's
// events take them from here.
#pragma once

#include "Vex/Assert.h"
#include "Vex/Value.h"

#include <algorithm>

namespace Switch {

VEX_ENUM( Operation, "Switch::Operation", createVlan, createNonDfPort, createVlanToDot1qMapping,
          createEsiData, createEsiPortMap, getHwTunnelId, createFec, createFloodSetDest,
          createMacEntry, deleteVlan, deleteNonDfPort, deleteVlanToDot1qMapping, deleteEsiData,
          deleteEsiPortMap, releaseHwTunnelId, deleteFec, deleteFloodSetDest, deleteMacEntry )

// The pools of hardware tunnel ids are the last, in the order of their types.
VEX_ENUM( Table, "Switch::Table", vlan, dot1qMapping, nonDfPort, esiData, esiPortMap, fec,
          floodSetDest, macEntry, hwTunnelIdTypeDefault, hwTunnelIdTypeSharedEsi )

// How a call fails.
VEX_ENUM( Failure, "Switch::Failure", notProgrammed, invalidHwId, tableFull )

// In the place of a failure that an operation cannot answer it answers the first that it can.
struct OperationType {
  Operation operation;
  Table table; // of an operation on hardware tunnel ids the first pool
  std::array< Failure, 2 > failures{};
  size_t failureCount = 0; // 0: it cannot fail

  constexpr OperationType( Operation called, Table changed,
                           std::initializer_list< Failure > answers = {} )
      : operation( called ), table( changed ), failureCount( answers.size() ) {
    std::copy( answers.begin(), answers.end(), failures.begin() );
  }

  constexpr bool canFail() const { return failureCount > 0; }
  constexpr Failure answerFor( Failure failure ) const {
    const auto end = failures.begin() + failureCount;
    return std::find( failures.begin(), end, failure ) == end ? failures.front() : failure;
  }
};

inline constexpr auto operationTypes = [] {
  using enum Operation;
  using enum Table;
  using enum Failure;
  return std::to_array< OperationType >( {
      { createVlan, vlan, { notProgrammed } },
      { createNonDfPort, nonDfPort, { notProgrammed, invalidHwId } },
      { createVlanToDot1qMapping, dot1qMapping, { notProgrammed, invalidHwId } },
      { createEsiData, esiData, { notProgrammed, invalidHwId } },
      { createEsiPortMap, esiPortMap, { notProgrammed, tableFull } },
      { getHwTunnelId, hwTunnelIdTypeDefault, { notProgrammed } },
      { createFec, fec, { notProgrammed } },
      { createFloodSetDest, floodSetDest, { notProgrammed } },
      { createMacEntry, macEntry, { notProgrammed, tableFull } },
      { deleteVlan, vlan },
      { deleteNonDfPort, nonDfPort },
      { deleteVlanToDot1qMapping, dot1qMapping },
      { deleteEsiData, esiData },
      { deleteEsiPortMap, esiPortMap },
      { releaseHwTunnelId, hwTunnelIdTypeDefault },
      { deleteFec, fec },
      { deleteFloodSetDest, floodSetDest },
      { deleteMacEntry, macEntry },
  } );
}();

constexpr const OperationType & typeOf( Operation operation ) {
  return operationTypes[ static_cast< size_t >( operation ) ];
}

namespace Detail {

constexpr bool isTable() {
  bool holds = operationTypes.size() == vexNames( Operation() ).size();
  for ( size_t i = 0; holds && i < operationTypes.size(); ++i ) {
    const bool followsOneThatFails = i == 0 || operationTypes[ i - 1 ].canFail();
    holds = static_cast< size_t >( operationTypes[ i ].operation ) == i &&
            ( followsOneThatFails || !operationTypes[ i ].canFail() );
  }
  return holds;
}
static_assert( isTable(), "one line an operation, in their order, those that can fail first" );

constexpr auto fallibleNames() {
  constexpr auto count =
      static_cast< size_t >( std::count_if( operationTypes.begin(), operationTypes.end(),
                                            []( const auto & each ) { return each.canFail(); } ) );
  std::array< std::string_view, count > names;
  constexpr auto all = vexNames( Operation() );
  std::copy_n( all.begin(), count, names.begin() );
  return names;
}

} // namespace Detail

// An operation that can fail.
class FallibleOperation {
public:
  constexpr FallibleOperation() = default;
  constexpr FallibleOperation( Operation operation ) : operation_( operation ) {
    VEX_ASSERT( typeOf( operation ).canFail() );
  }
  constexpr operator Operation() const { return operation_; }
  constexpr uint64_t vexWord() const { return static_cast< uint64_t >( operation_ ); }
  static constexpr auto names() { return Detail::fallibleNames(); }

  friend void appendText( Vex::TextBuffer & out, FallibleOperation value ) {
    appendText( out, value.operation_ );
  }
  friend void parseText( Vex::TextCursor & in, FallibleOperation & value ) {
    Vex::parseEnum( in, value.operation_, names() );
  }

private:
  Operation operation_{};
};

constexpr std::string_view vexTypeName( FallibleOperation ) {
  return "Switch::FallibleOperation";
}

} // namespace Switch
