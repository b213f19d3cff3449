// A growable array for the few places that must notice a failed allocation.
//
// It is constant-initialised, so a static one is empty before any code runs; emptying it keeps its
// storage for the next user; and growing reports failure instead of throwing.

#pragma once

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <type_traits>

template <typename T>
class Vector {
    static_assert(std::is_trivially_copyable<T>::value, "elements are moved by realloc");

public:
    constexpr Vector() = default;
    ~Vector() { free(ctxt.elements); }

    Vector(const Vector&) = delete;
    Vector& operator=(const Vector&) = delete;

    bool empty() const { return ctxt.n_elem == 0; }
    uint32_t size() const { return ctxt.n_elem; }

    /// The element at `index`, which must lie below size(); anything else is fatal.
    T& get(uint32_t index) {
        assert(index < ctxt.n_elem);
        return ctxt.elements[index];
    }

    /// Adds a copy of `element` at the end.
    /// \return false, with nothing changed, if memory ran out.
    bool append(const T& element) {
        if (ctxt.n_elem == ctxt.capacity && !grow()) return false;
        ctxt.elements[ctxt.n_elem] = element;
        ++ctxt.n_elem;
        return true;
    }

    /// Drops all elements and keeps the storage.
    void clear() { ctxt.n_elem = 0; }

private:
    bool grow() {
        const uint32_t wider = ctxt.capacity == 0 ? 4 : 2 * ctxt.capacity;
        T* moved = static_cast<T*>(realloc(ctxt.elements, wider * sizeof(T)));
        if (moved == nullptr) return false;
        ctxt.elements = moved;
        ctxt.capacity = wider;
        return true;
    }

    struct Context {
        uint32_t n_elem = 0;
        uint32_t capacity = 0;
        T* elements = nullptr;
    };
    Context ctxt;
};
