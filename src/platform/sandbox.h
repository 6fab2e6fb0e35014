#pragma once

#include <QString>

#include <optional>

// Whether Corvina runs confined (Flatpak or Snap), where it may not start lsof itself and runs
// it through a script the user installed instead.
namespace Sandbox {

enum class Kind { None, Flatpak, Snap };

Kind kind();
inline bool isSandboxed()
{
    return kind() != Kind::None;
}

// For tests: answer `kind` from now on instead of looking at the system.
void overrideKind(std::optional<Kind> kind);

} // namespace Sandbox
