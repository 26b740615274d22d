#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Loads converter plug-ins and keeps them for the life of the factory.
//
// The factory's inline constructor reads `plugins` directly: this program
// may use only what the device's library defines, which is the constructor,
// the destructor and loadPlugins(). The members are the device's, in its
// order.
class TREVO_EXPORT PluginManager {
public:
    struct PluginState {
        ConverterInterface* converter = nullptr;  // owned by `owner`
        std::shared_ptr<ConverterInterface> owner;
        std::string name;
    };
    using PluginMap = std::map<std::string, std::shared_ptr<PluginState>>;

    PluginManager();
    ~PluginManager();
    PluginManager(const PluginManager&) = delete;
    PluginManager& operator=(const PluginManager&) = delete;

    // Loads every available plug-in, giving each `callback`. Returns the
    // number loaded.
    int loadPlugins(ConverterCbInterface* callback);

    PluginMap plugins;  // by name
    std::mutex mutex;   // guards `plugins` while loading
};

}  // namespace trevo
