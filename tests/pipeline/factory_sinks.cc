// The factory's sinks as a test sees them: the closed declaration offers no
// way to look, so the set is read under its mutex through member pointers.

#include "frame_path_fixture.h"
#include "support/PrivateMember.h"

UVC_PRIVATE_MEMBER(FactorySinks, trevo::ConversionFactory, sinks, std::set<trevo::FrameReceiver*>);
UVC_PRIVATE_MEMBER(FactorySinksMutex, trevo::ConversionFactory, sinksMutex, std::mutex);

std::set<trevo::FrameReceiver*> factorySinks() {
    trevo::ConversionFactory& factory = trevo::ConversionFactory::getInstance();
    std::lock_guard<std::mutex> guard(factory.*uvc_test::privateMember<FactorySinksMutex>());
    return factory.*uvc_test::privateMember<FactorySinks>();
}
