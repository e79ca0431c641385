#include "damage_text.h"

namespace qx::tool {

namespace {

/// The fields of a problem by their place.
class Fields {
  public:
    explicit Fields(const Damage& damage) : fields_(damage.Fields) {}

    std::string operator[](std::size_t index) const { return index < fields_.size() ? fields_[index] : "?"; }

    /// From field `index` on: a file and a frame of it, and perhaps a position.
    std::string Frame(std::size_t index) const {
        return ((*this)[index] == "PRIME" ? "primary" : "overflow") + std::string(" frame ") + (*this)[index + 1];
    }
    std::string Place(std::size_t index) const { return Frame(index) + ", position " + (*this)[index + 2]; }

  private:
    const std::vector<std::string>& fields_;
};

std::string FileDamage(const Damage& damage) {
    const Fields fields(damage);
    switch (damage.Number) {
        case 1:
            return "the primary file " + fields[0] + " cannot be opened or read";
        case 3:
            return "the file header is none: it begins with another byte than 22, 26 or 32, or makes no sense";
        case 4:
            return "the primary file has " + fields[0] + " bytes; " + fields[1] + " groups with frames of " +
                   fields[2] + " bytes need others";
        case 5:
            return "frame " + fields[0] + " of the free list does not begin with the byte 14";
        case 11:
            return "frame " + fields[0] + " of the free list cannot be read";
        case 12:
            return "frame " + fields[0] + " of the free list is out of order, or the list leads back to it";
        default:
            return "something is wrong with the file";
    }
}

std::string GroupDamage(std::uint32_t group, const Damage& damage) {
    const Fields fields(damage);
    switch (damage.Number) {
        case 1:
            return "primary frame " + std::to_string(group) + " cannot be read";
        case 3:
            return "primary frame " + std::to_string(group) + " begins with the byte " + fields[0] +
                   (group == 0 ? ", or its header makes no sense" : " and not with 13");
        case 5:
            return "an overflow frame begins with the byte " + fields[0] + " and not with 14";
        case 6:
            return fields.Frame(0) + ": no group follows from a key";
        case 7:
            return "the key of a record belongs to another group";
        case 8:
            return fields.Place(1) + ": a record does not end where it should";
        case 9:
            return "overflow frame " + fields[0] +
                   (fields[1] == std::to_string(group) ? " is in the chain twice" : " belongs to group " + fields[1]);
        case 10:
            return "overflow frame " + fields[1] + " of the chain cannot be read; the overflow file has " + fields[0] +
                   " frames";
        case 13:
            return fields.Place(0) + ": there is something behind the end of the group";
        case 14:
            return fields.Frame(0) + ": it ends the group but leads on to another frame";
        default:
            return "something is wrong with the group";
    }
}

}  // namespace

std::string DamageText(std::optional<std::uint32_t> group, const Damage& damage) {
    const std::string text =
        group ? "group " + std::to_string(*group) + ": " + GroupDamage(*group, damage) : FileDamage(damage);
    return text + " (problem " + std::to_string(damage.Number) + ")";
}

}  // namespace qx::tool
