#include "trevo/PluginManager.h"

#include "StandInState.h"

namespace trevo {

PluginManager::PluginManager() = default;
// The factory destroys its plug-in manager first, so its other members are
// still there for the frames its delivery thread has yet to hand out.
PluginManager::~PluginManager() {
    convfact_standin::endDeliveries(this);
}

// The device loads shared objects from its plug-in folder; the stand-in loads
// only what a test has added.
int PluginManager::loadPlugins(ConverterCbInterface* callback) {
    int loaded = 0;
    for (auto& entry : convfact_standin::pluginMakers()) {
        std::shared_ptr<ConverterInterface> converter =
            entry.second ? entry.second(callback) : nullptr;
        if (!converter)
            continue;
        auto state = std::make_shared<PluginState>();
        state->converter = converter.get();
        state->owner = std::move(converter);
        state->name = entry.first;
        std::lock_guard<std::mutex> guard(mutex);
        plugins[entry.first] = std::move(state);
        ++loaded;
    }
    return loaded;
}

}  // namespace trevo
