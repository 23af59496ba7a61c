// Waits for other programs to change files.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vorn::tool {

class FileFollower {
public:
    // From here on no change is missed. SIGINT, SIGTERM and SIGHUP are held for wait from here on.
    explicit FileFollower(const std::vector<std::string>& files);
    ~FileFollower();
    FileFollower(const FileFollower&) = delete;
    FileFollower& operator=(const FileFollower&) = delete;

    // Returns true when a file was written, replaced or removed, and no more was done to it for a
    // moment; false when a signal asks to stop.
    bool wait();

private:
    void _follow();
    bool _takeEvents();

    std::vector<std::string> m_files;
    int m_inotify;
    int m_signals;
    std::set<std::pair<int, std::string>> m_names; // directory watch and name of every file
};

} // namespace vorn::tool
