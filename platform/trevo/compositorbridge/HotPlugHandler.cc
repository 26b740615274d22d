#include "trevo/HotPlugHandler.h"

namespace trevo {

// As plain as the device's: a handler that is still registered when it is
// destroyed is called all the same (see the lifetime rule in the header).
HotPlugHandler::~HotPlugHandler() = default;

}  // namespace trevo
