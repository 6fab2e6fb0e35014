#include "helperinstaller.h"

#include "helperunitfiles.h"
#include "privileged/helperinstallation.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <iostream>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace HelperInstallation;

// Written next to the target and renamed over it, so a daemon running from the old file keeps
// a whole binary and a crash mid-install leaves no half file.
bool HelperInstaller::writeFile(const std::string& path, const std::string& contents, unsigned mode)
{
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << contents;
        if (!out) {
            std::cerr << "corvina-helper: cannot write " << temporary << '\n';
            return false;
        }
    }
    if (::chmod(temporary.c_str(), mode) != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
        std::cerr << "corvina-helper: cannot install " << path << ": " << std::strerror(errno)
                  << '\n';
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

bool HelperInstaller::copyFile(const std::string& from, const std::string& to)
{
    std::ifstream in(from, std::ios::binary);
    if (!in) {
        std::cerr << "corvina-helper: cannot read " << from << '\n';
        return false;
    }
    const std::string contents((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    return writeFile(to, contents, 0755);
}

bool HelperInstaller::runFixed(const char* program, const char* const* argv)
{
    const pid_t child = ::fork();
    if (child < 0)
        return false;
    if (child == 0) {
        static char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
        char* environment[] = {path, nullptr};
        ::execve(program, const_cast<char* const*>(argv), environment);
        ::_exit(127);
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return true;
    std::cerr << "corvina-helper: " << program << " failed\n";
    return false;
}

// pkexec names the user who asked for the installation; that user is the one who will connect.
bool HelperInstaller::addInvokingUser()
{
    const char* invoking = std::getenv("PKEXEC_UID");
    if (invoking == nullptr || *invoking == '\0')
        return true;
    char* end = nullptr;
    const unsigned long uid = std::strtoul(invoking, &end, 10);
    if (*end != '\0' || uid == 0)
        return true;
    const passwd* user = ::getpwuid(static_cast<uid_t>(uid));
    if (user == nullptr)
        return true;
    const std::string name = user->pw_name;
    const char* const usermod[] = {"/usr/sbin/usermod", "-aG", kGroup, name.c_str(), nullptr};
    return runFixed(usermod[0], usermod);
}

// corvina-sockets is built beside the daemon. Without it the daemon still serves lsof, and
// answers null to a collect request, which the application takes as its cue to fall back.
bool HelperInstaller::copySocketsProgram(const std::string& executable)
{
    const fs::path source = fs::path(executable).parent_path() / kSocketsProgramName;
    std::error_code error;
    if (!fs::exists(source, error)) {
        std::cerr << "corvina-helper: " << source.string()
                  << " is missing; the helper will run lsof only\n";
        return true;
    }
    return copyFile(source.string(), staged(kSocketsProgram));
}

int HelperInstaller::install(const std::string& executable)
{
    const bool staging = !m_root.empty();
    if (!staging && ::geteuid() != 0) {
        std::cerr << "corvina-helper: --install must run as root (try: pkexec " << executable
                  << " --install)\n";
        return 1;
    }
    const std::string target = kExecutable;
    const std::string unitDirectory = kUnitDirectory;
    if (!copyFile(executable, staged(target)) || !copySocketsProgram(executable) ||
        !writeFile(staged(unitDirectory + '/' + kSocketUnit), HelperUnitFiles::kSocketUnit, 0644) ||
        !writeFile(staged(unitDirectory + '/' + kServiceUnit), HelperUnitFiles::kServiceUnit,
                   0644) ||
        !writeFile(staged(std::string(kPolicyDirectory) + '/' + kPolicyFile),
                   HelperUnitFiles::kPolicy, 0644))
        return 1;
    if (staging)
        return 0;

    if (::getgrnam(kGroup) == nullptr) {
        const char* const groupadd[] = {"/usr/sbin/groupadd", "--system", kGroup, nullptr};
        if (!runFixed(groupadd[0], groupadd))
            return 1;
    }
    if (!addInvokingUser())
        return 1;
    const char* const reload[] = {"/usr/bin/systemctl", "daemon-reload", nullptr};
    const char* const enable[] = {"/usr/bin/systemctl", "enable", "--now", kSocketUnit, nullptr};
    // A daemon of an older version still serving connections is replaced by the new binary.
    const char* const restart[] = {"/usr/bin/systemctl", "try-restart", kServiceUnit, nullptr};
    if (!runFixed(reload[0], reload) || !runFixed(enable[0], enable) ||
        !runFixed(restart[0], restart))
        return 1;
    std::cout << "corvina-helper installed; members of the group '" << kGroup
              << "' may use it (usermod -aG " << kGroup << " USER adds one)\n";
    return 0;
}
