// A plugin that is being loaded and may yet be refused. Whatever becomes of it, no trace of a
// refused plugin stays: its log source is withdrawn before its library is closed.
//
// Threads: lives on one thread, with no lock of the registry held: it calls the plugin and the
// logging service.
#pragma once

#include "LoggingService.h"
#include "PluginImage.h"

#include <memory>

namespace vorn::host {

class Candidate {
public:
    // From a library file, or a copy of it when copyDirectory is not empty.
    Candidate(Framework& framework,
              const std::string& libraryPath,
              const std::string& copyDirectory)
        : m_image(std::make_unique<PluginImage>(libraryPath)),
          m_refusal(m_image->load(framework, copyDirectory)) {}

    // By the addresses of its entry points.
    Candidate(Framework& framework,
              const PluginRegistrationDesc& entryPoints,
              const std::string& registrar)
        : m_image(std::make_unique<PluginImage>(entryPoints, registrar)),
          m_refusal(m_image->load(framework, {})) {}

    ~Candidate() {
        if (m_image) {
            m_trial.withdraw();
        }
    }
    Candidate(const Candidate&) = delete;
    Candidate& operator=(const Candidate&) = delete;

    const Refusal& refusal() const {
        return m_refusal;
    }
    void refuse(const std::string& expected, const std::string& found) {
        m_refusal = refusalText(m_image->label(), "is refused", expected, found);
    }

    // REQUIRES: not refused, not taken yet.
    const PluginImage& image() const {
        return *m_image;
    }

    // Gives the image away: the plugin is accepted.
    std::unique_ptr<PluginImage> take() {
        return std::move(m_image);
    }

    // Makes its log source the one that counts. After take. While this object lives, a library
    // that is replaced can be closed on this thread without taking the source along.
    void confirm() {
        m_trial.confirm();
    }

private:
    SourceTrial m_trial; // destroyed after the image, whose library unregisters its source
    std::unique_ptr<PluginImage> m_image;
    Refusal m_refusal;
};

} // namespace vorn::host
