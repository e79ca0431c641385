#include "filling.h"

#include "file_load.h"

namespace qx::tool {

Filling::Filling(File& file) : file_(file) {
    if (WouldShrink()) {
        hold_.emplace(file_);
    }
}

bool Filling::WouldShrink() const {
    return FileLoad(file_.Header()).WouldShrink.value_or(false);
}

void Filling::Look() {
    if (!WouldShrink()) {
        hold_.reset();
    }
}

}  // namespace qx::tool
