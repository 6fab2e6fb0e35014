#include "bpfsocketowners.h"

using namespace Qt::StringLiterals;

// This build has no eBPF program: clang, bpftool or libbpf-dev was missing.
struct BpfSocketOwners::Program {};

BpfSocketOwners::BpfSocketOwners() = default;
BpfSocketOwners::~BpfSocketOwners() = default;

QString BpfSocketOwners::start()
{
    return u"not built: clang, bpftool or libbpf-dev was missing"_s;
}

std::optional<SocketOwners::Owner> BpfSocketOwners::ownerOf(quint64)
{
    return std::nullopt;
}
