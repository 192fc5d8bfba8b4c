#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

/// Owner of memory that came from malloc or calloc; null if the allocation failed.
template <class Element>
class HostArray {
  public:
    explicit HostArray(void* memory) : elements(static_cast<Element*>(memory)) {}

    Element* get() const { return elements.get(); }
    Element& operator[](std::size_t index) const { return elements[index]; }
    bool operator==(std::nullptr_t) const { return elements == nullptr; }

  private:
    struct Free {
        void operator()(Element* memory) const { std::free(memory); }
    };
    std::unique_ptr<Element[], Free> elements;
};
