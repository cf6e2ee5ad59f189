// What the simulated switch has, kept in tables that outlive it, as real hardware outlives the
// process that programs it: each of its tables has a file, of the same name in switch/ below the
// mount directory. A switch that begins with a journal has what the last one had.
//
// Each change is written as it is made, what paths change included. A table that has no room for
// another entry in the journal is full. What is set of the switch is not kept.
#pragma once

#include "KezHelper/JournalNames.h"
#include "switch/SimulatedSwitch.h"

#include <memory>

namespace Switch {

class SwitchJournal : private Vex::ReactorOwner {
public:
  // Of an empty switch, until it ends. Raises std::runtime_error, which says the file and what is
  // wrong with it: it has a writer already, is damaged, or is of another kind.
  explicit SwitchJournal( SimulatedSwitch & hardware );
  ~SwitchJournal() override;

  // Empties itself, and is of another empty switch from now on.
  void startOver( SimulatedSwitch & hardware );
  bool empty() const;
  // Whether one more entry of the table has room here.
  bool hasRoom( Table table );

private:
  class Kept;
  template< class Owner, Vex::AttrId attrId > class KeptTable;

  void beOf( SimulatedSwitch & hardware, void ( Kept::*begin )( SimulatedSwitch & hardware ) );

  KezHelper::JournalNames names_;
  std::vector< std::unique_ptr< Kept > > tables_;
  SimulatedSwitch * hardware_ = nullptr; // whom the tables hold
};

} // namespace Switch
