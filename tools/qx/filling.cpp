#include "filling.h"

#include <qx.h>

#include "file_load.h"

namespace qx::tool {

namespace {

constexpr std::uint32_t kNumberOfGroups = 0xFFFFFFFE;  // what QXLockGroup holds still

}  // namespace

Filling::Filling(File& file) : file_(file) {
    if (WouldShrink()) {
        StatusRecord status{};
        if (QXLockGroup(file_.Handle(), kNumberOfGroups, 0, &status) == 0) {
            throw Error(status);
        }
        holds_ = true;
    }
}

bool Filling::WouldShrink() const {
    return FileLoad(file_.Header()).WouldShrink.value_or(false);
}

void Filling::Look() {
    if (!WouldShrink()) {
        LetGo();
    }
}

void Filling::LetGo() noexcept {
    if (holds_) {
        StatusRecord ignored;
        QXUnlockGroup(file_.Handle(), kNumberOfGroups, &ignored);
        holds_ = false;
    }
}

}  // namespace qx::tool
