// Busy plugins and the threads that wait for them.

#include "WorkBoard.h"

#include <algorithm>

namespace vorn::host {

WorkBoard::Work::Work(WorkBoard& board, PluginPtr plugin, PluginState state)
    : m_board(board), m_plugin(std::move(plugin)), m_endState(m_plugin->state) {
    m_board.m_workers[std::this_thread::get_id()].plugins.push_back(m_plugin);
    m_plugin->worker = std::this_thread::get_id();
    m_plugin->state = state;
}

WorkBoard::Work::~Work() {
    m_plugin->state = m_endState;
    const auto worker = m_board.m_workers.find(std::this_thread::get_id());
    worker->second.plugins.pop_back();
    m_board._dismissIfIdle(worker);
    m_board.m_idle.notify_all();
}

Refusal WorkBoard::awaitIdle(std::unique_lock<std::mutex>& lock, const PluginPtr& plugin) {
    while (plugin->isBusy()) {
        const std::string cycle = _findCycle(*plugin);
        if (!cycle.empty()) {
            return "expected dependencies without a cycle, found " + cycle;
        }
        const auto worker = m_workers.try_emplace(std::this_thread::get_id()).first;
        worker->second.awaited = plugin;
        m_idle.wait(lock);
        worker->second.awaited = nullptr;
        _dismissIfIdle(worker);
    }
    return {};
}

PluginPtr WorkBoard::findOnFile(const std::string& libraryPath) const {
    for (const auto& [thread, worker] : m_workers) {
        for (const PluginPtr& plugin : worker.plugins) {
            if (plugin->libraryPath == libraryPath) {
                return plugin;
            }
        }
    }
    return nullptr;
}

// Follows who works on what and waits for what, from a busy plugin on. When that leads to this
// thread: the names of the plugins on the way, from the wanted one to itself. Else empty.
std::string WorkBoard::_findCycle(const Plugin& wanted) const {
    std::string names;
    const Plugin* next = &wanted;
    while (next && next->isBusy()) {
        const Worker& worker = m_workers.at(next->worker);
        const auto isNext = [&](const PluginPtr& plugin) { return plugin.get() == next; };
        auto plugin = std::find_if(worker.plugins.begin(), worker.plugins.end(), isNext);
        for (; plugin != worker.plugins.end(); ++plugin) {
            names += (*plugin)->name + " -> ";
        }
        if (next->worker == std::this_thread::get_id()) {
            return names + wanted.name;
        }
        next = worker.awaited.get();
    }
    return {};
}

void WorkBoard::_dismissIfIdle(std::map<std::thread::id, Worker>::iterator worker) {
    if (worker->second.plugins.empty() && !worker->second.awaited) {
        m_workers.erase(worker);
    }
}

} // namespace vorn::host
