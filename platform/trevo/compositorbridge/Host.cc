// The test-side facade of the compositor stand-in; all state is in HostCore.

#include "trevo_host.h"

#include "HostCore.h"

namespace trevo_standin {

namespace {
HostCore& core() {
    return HostCore::instance();
}
}  // namespace

Host::Host() = default;
Host::~Host() = default;

Host& Host::instance() {
    static Host host;
    return host;
}

void Host::reset() {
    core().reset();
}
void Host::setConfig(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c) {
    core().setConfig(id, idx, c);
}
trevo::HalUvcConfig Host::getConfig(uint8_t id, uint8_t idx) const {
    return core().configuration(id, idx, false);
}
uint64_t Host::hotplug(int status, uint8_t id, uint8_t idx, int lane) {
    return core().post(false, status, std::string(), id, idx, lane);
}
uint64_t Host::setting(const std::string& json, uint8_t id, uint8_t idx, int lane) {
    return core().post(true, 0, json, id, idx, lane);
}
bool Host::waitDelivered(uint64_t ticket, std::chrono::milliseconds timeout) {
    return core().waitDelivered(ticket, timeout);
}
bool Host::waitForHandler(std::chrono::milliseconds timeout) {
    return core().waitForHandler(timeout);
}
bool Host::hasHandler() const {
    return core().hasHandler();
}
size_t Host::droppedEvents() const {
    return core().droppedEvents();
}
std::vector<std::string> Host::calls() const {
    return core().calls();
}
size_t Host::countCalls(const std::string& call) const {
    return core().countCalls(call);
}
std::vector<std::string> Host::appMessages() const {
    return core().appMessages();
}
bool Host::waitForAppMessages(size_t n, std::chrono::milliseconds timeout) {
    return core().waitForAppMessages(n, timeout);
}
bool Host::waitForCalls(const std::string& call, size_t n, std::chrono::milliseconds timeout) {
    return core().waitForCalls(call, n, timeout);
}
std::vector<ReceivedFrame> Host::frames() const {
    return core().recorder().frames();
}
size_t Host::frameCount(uint8_t id, uint8_t idx) const {
    return core().recorder().frameCount(id, idx);
}
bool Host::waitForFrames(uint8_t id, uint8_t idx, size_t n, std::chrono::milliseconds timeout) {
    return core().recorder().waitForFrames(id, idx, n, timeout);
}
void Host::clearFrames() {
    core().recorder().clearFrames();
}
void Host::setCopyFrameBytes(bool on) {
    core().recorder().setCopyFrameBytes(on);
}
void Host::setHostDelay(uint8_t id, uint8_t idx, std::chrono::milliseconds delay) {
    core().recorder().setHostDelay(id, idx, delay);
}
void Host::setFrameListener(std::function<void(const ReceivedFrame&)> f) {
    core().recorder().setFrameListener(std::move(f));
}
void Host::failSends(int n) {
    core().recorder().failSends(n);
}
size_t Host::rejectedSends() const {
    return core().recorder().rejectedSends();
}
size_t Host::liveBridges() const {
    return core().liveBridges();
}

}  // namespace trevo_standin
