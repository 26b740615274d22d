#include "camera/CamPreset.h"

#include <cstdio>

namespace uvc_client {

CamPreset& CamPreset::Instance() {
    static CamPreset instance;
    return instance;
}

void CamPreset::preset(const std::string& op, int id) {
    printf("apply op [%s] on preset id: [%d]\n", op.c_str(), id);
}

}  // namespace uvc_client
