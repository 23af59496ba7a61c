// Which thread works on which plugins, and which one it waits for: so that nobody waits for
// itself, not even by way of other threads.
//
// Guarded by the registry's mutex, which is given along as a held lock where there is waiting.
#pragma once

#include "Plugin.h"
#include "Versions.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vorn::host {

class WorkBoard {
public:
    // This thread's work on an idle plugin, with the mutex held at both ends. The plugin is busy
    // in between, and afterwards in the state that endAs says, or in the one before.
    class Work {
    public:
        Work(WorkBoard& board, PluginPtr plugin, PluginState state);
        ~Work();
        Work(const Work&) = delete;
        Work& operator=(const Work&) = delete;

        void endAs(PluginState state) {
            m_endState = state;
        }

    private:
        WorkBoard& m_board;
        PluginPtr m_plugin;
        PluginState m_endState;
    };

    // Waits until no thread works on the plugin. Refused when a thread that does, or one that it
    // waits for, is this one: the plugin needs something that needs the plugin.
    Refusal awaitIdle(std::unique_lock<std::mutex>& lock, const PluginPtr& plugin);

    // The busy plugin of a library file, or null.
    PluginPtr findOnFile(const std::string& libraryPath) const;

private:
    struct Worker {
        std::vector<PluginPtr> plugins; // the one begun last at the end
        PluginPtr awaited;
    };

    std::string _findCycle(const Plugin& wanted) const;
    void _dismissIfIdle(std::map<std::thread::id, Worker>::iterator worker);

    std::map<std::thread::id, Worker> m_workers; // none without work and without waiting
    std::condition_variable m_idle;              // some work has ended
};

} // namespace vorn::host
