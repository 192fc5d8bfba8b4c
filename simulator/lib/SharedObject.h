// Small changes to a shared library's bytes: enough to make it lack a symbol or belong to another machine.
#pragma once

#include <string>
#include <utility>

#include <elf.h>

namespace qzsim {

class SharedObject {
  public:
    /// Throws std::runtime_error unless the bytes are a 64-bit ELF file.
    explicit SharedObject(std::string bytes);

    /// Makes a look-up of the dynamic symbol fail, or gives the library another soname; the same text
    /// elsewhere in the file stays. Throws std::runtime_error if the dynamic loader's names do not include
    /// it.
    void hideName(const std::string& name);

    /// Sets the machine number of the header, an EM_ constant.
    void setMachine(Elf64_Half machine);

    const std::string& bytes() const { return image; }

  private:
    /// The range of the names that the dynamic loader uses.
    std::pair<std::size_t, std::size_t> dynamicNames() const;

    template <typename Structure>
    Structure at(std::size_t offset) const;

    std::string image;
};

} // namespace qzsim
