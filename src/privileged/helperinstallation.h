#pragma once

// Where an installed helper lives. Shared by the daemon's installer and the application, which
// checks for it and tells the user how to remove it.
namespace HelperInstallation {

inline constexpr const char* kServiceName = "com.brindle.Corvina.Helper";
inline constexpr const char* kSocketPath = "/run/com.brindle.Corvina.Helper.sock";
inline constexpr const char* kInstallDirectory = "/usr/local/libexec/corvina";
inline constexpr const char* kExecutable = "/usr/local/libexec/corvina/corvina-helper";
// The built-in collector as a program of its own, which the daemon runs as root.
inline constexpr const char* kSocketsProgram = "/usr/local/libexec/corvina/corvina-sockets";
inline constexpr const char* kSocketsProgramName = "corvina-sockets";
inline constexpr const char* kUnitDirectory = "/etc/systemd/system";
inline constexpr const char* kPolicyDirectory = "/usr/share/polkit-1/actions";
inline constexpr const char* kSocketUnit = "com.brindle.Corvina.Helper.socket";
inline constexpr const char* kServiceUnit = "com.brindle.Corvina.Helper.service";
inline constexpr const char* kPolicyFile = "com.brindle.Corvina.Helper.policy";
inline constexpr const char* kGroup = "corvina";

} // namespace HelperInstallation
