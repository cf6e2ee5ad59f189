#include "Rook/CollectionControl.h"

namespace Rook {

Vex::String CollectionControl::entityName() const {
  return entity_ ? entity_->fullName() : Vex::String();
}

void CollectionControl::entityIs( const Vex::Entity * entity ) {
  if ( entity != entity_ ) {
    entity_ = entity;
    vexNotify( entityAttr, nullptr );
  }
}

} // namespace Rook
