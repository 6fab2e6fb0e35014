#include "sandbox.h"

#include <QFileInfo>

#include <atomic>

namespace {

// -1: look at the system; otherwise the overriding kind.
std::atomic<int> overridden{-1};

} // namespace

Sandbox::Kind Sandbox::kind()
{
    const int forced = overridden.load();
    if (forced >= 0)
        return Kind(forced);
    static const Kind detected = [] {
        if (QFileInfo::exists(QStringLiteral("/.flatpak-info")))
            return Kind::Flatpak;
        if (!qEnvironmentVariableIsEmpty("SNAP"))
            return Kind::Snap;
        return Kind::None;
    }();
    return detected;
}

void Sandbox::overrideKind(std::optional<Kind> kind)
{
    overridden.store(kind ? int(*kind) : -1);
}
