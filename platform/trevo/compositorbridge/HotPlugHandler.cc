#include "trevo/HotPlugHandler.h"

#include "HostCore.h"

namespace trevo {

// Last line of defence: never call a handler whose storage is gone. Derived
// classes unregister earlier, while their own members still exist.
HotPlugHandler::~HotPlugHandler() {
    trevo_standin::HostCore::instance().unregisterHandler(this);
}

}  // namespace trevo
