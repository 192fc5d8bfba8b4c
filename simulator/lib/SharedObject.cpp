#include "simulator/lib/SharedObject.h"

#include <cstring>
#include <stdexcept>

namespace qzsim {

template <typename Structure>
Structure SharedObject::at(std::size_t offset) const {
    Structure found{};
    if (offset > image.size() || image.size() - offset < sizeof found)
        throw std::runtime_error("the library is cut short");
    std::memcpy(&found, image.data() + offset, sizeof found);
    return found;
}

SharedObject::SharedObject(std::string bytes) : image(std::move(bytes)) {
    if (image.compare(0, SELFMAG, ELFMAG) != 0 || image.size() <= EI_CLASS || image[EI_CLASS] != ELFCLASS64)
        throw std::runtime_error("not a 64-bit ELF file");
}

std::pair<std::size_t, std::size_t> SharedObject::dynamicNames() const {
    const auto header = at<Elf64_Ehdr>(0);
    const auto section = [&](std::size_t index) {
        return at<Elf64_Shdr>(header.e_shoff + index * header.e_shentsize);
    };
    for (std::size_t index = 0; index < header.e_shnum; ++index) {
        if (section(index).sh_type == SHT_DYNSYM) {
            const Elf64_Shdr names = section(section(index).sh_link);
            return {names.sh_offset, names.sh_offset + names.sh_size};
        }
    }
    throw std::runtime_error("the library has no dynamic symbols");
}

void SharedObject::hideName(const std::string& name) {
    const auto [begin, end] = dynamicNames();
    const std::size_t found = image.find('\0' + name + '\0', begin);
    if (found == std::string::npos || found + name.size() + 2 > end)
        throw std::runtime_error("the library has no name " + name);
    image[found + 1] = '~';
}

void SharedObject::setMachine(Elf64_Half machine) {
    std::memcpy(&image[offsetof(Elf64_Ehdr, e_machine)], &machine, sizeof machine);
}

} // namespace qzsim
