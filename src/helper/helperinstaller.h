#pragma once

#include <string>

// `corvina-helper --install`: puts the daemon and corvina-sockets (found beside it) where the
// units expect them, writes the units and the polkit policy, creates the group whose members
// may connect, and enables the socket.
class HelperInstaller final {
public:
    // `stagingRoot` empty: the real system (root only). Otherwise the files are written below it
    // and the group and systemd steps are skipped, so packagers and tests can look at them.
    explicit HelperInstaller(std::string stagingRoot = {}) : m_root(std::move(stagingRoot)) {}

    // Exit status for main; messages go to standard error.
    int install(const std::string& executable);

private:
    bool writeFile(const std::string& path, const std::string& contents, unsigned mode);
    bool copyFile(const std::string& from, const std::string& to);
    bool copySocketsProgram(const std::string& executable);
    bool addInvokingUser();
    bool runFixed(const char* program, const char* const* argv);
    std::string staged(const std::string& path) const { return m_root + path; }

    std::string m_root;
};
