#include "trevo/HotPlugHandler.h"

#include "GadgetCore.h"

namespace trevo {

// Last line of defence: never call a handler whose storage is gone. Derived
// classes unregister earlier, while their own members still exist.
HotPlugHandler::~HotPlugHandler() {
    uvc_gadget::GadgetCore::instance().unregisterHandler(this);
}

}  // namespace trevo
