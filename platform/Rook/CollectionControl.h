// What is said of a table that an entity keeps: its state, and which entity that is while there
// is one. It may outlive the entity, and refers to it without holding it.
#pragma once

#include "Rook/TableWriter.h"
#include "Vex/Attributes.h"

namespace Rook {

class CollectionControl : public Vex::Entity {
  VEX_ENTITY( CollectionControl, "Rook::CollectionControl" )
  VEX_ATTRIBUTE( 1, mountStatus, MountStatus )
  VEX_ATTRIBUTE( 2, quiesced, bool )
  VEX_ATTRIBUTE( 3, notificationsSuppressed, bool )
  VEX_COMPUTED( 4, entityName, Vex::String )
  VEX_ATTRIBUTES( mountStatus, quiesced, notificationsSuppressed, entityName )

public:
  static constexpr Vex::Access vexAccess = Vex::Access::readOnly;

  // Null when there is none.
  const Vex::Entity * entity() const { return entity_; }
  // Told of as a change of `entityName`.
  static constexpr Vex::AttrRef< void > entityAttr{ 4 };
  void entityIs( const Vex::Entity * entity );

private:
  const Vex::Entity * entity_ = nullptr;
};

} // namespace Rook
