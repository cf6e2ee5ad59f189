// Room made before a batch of members is added.
#pragma once

#include "Vex/Storage.h"

namespace Kez {

// For so many members in all, in the only collection of an entity.
template< class Entity > void makeRoom( Entity & entity, size_t members ) {
  ( entity.*Vex::onlyCollectionOf< Entity >.storage ).reserve( members );
}

} // namespace Kez
