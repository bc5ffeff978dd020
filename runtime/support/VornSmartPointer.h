#pragma once

#include <cstddef>
#include <functional>
#include <utility>

namespace VornSupport {

// Owns one counted object (a VornObjectBase) or nothing. The pointer itself is
// a plain value: two threads may not change one pointer at once, but pointers
// to one object may live on any threads. Nothing here throws.
template <class T>
class VornSmartPointer {
public:
    VornSmartPointer() = default;
    VornSmartPointer(std::nullptr_t) {}
    VornSmartPointer(T* object) : object_(object) { hold(); }
    VornSmartPointer(const VornSmartPointer& other) : object_(other.object_) { hold(); }
    VornSmartPointer(VornSmartPointer&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)) {}
    // From a pointer to a class derived from T.
    template <class U>
    VornSmartPointer(const VornSmartPointer<U>& other) : object_(other.get()) {
        hold();
    }
    ~VornSmartPointer() { drop(object_); }

    VornSmartPointer& operator=(const VornSmartPointer& other) {
        assign(other.object_);
        return *this;
    }
    VornSmartPointer& operator=(VornSmartPointer&& other) noexcept {
        if (this != &other) drop(std::exchange(object_, std::exchange(other.object_, nullptr)));
        return *this;
    }
    VornSmartPointer& operator=(T* object) {
        assign(object);
        return *this;
    }

    T* get() const { return object_; }
    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

    friend bool operator==(const VornSmartPointer& a, const VornSmartPointer& b) {
        return a.object_ == b.object_;
    }
    friend bool operator==(const VornSmartPointer& a, std::nullptr_t) {
        return a.object_ == nullptr;
    }

private:
    void hold() {
        if (object_ != nullptr) object_->addRef();
    }
    static void drop(T* object) {
        if (object != nullptr) object->release();
    }
    // The new object is held before the old one is released: the old one's end
    // may take with it what led to the new one.
    void assign(T* object) {
        if (object == object_) return;
        if (object != nullptr) object->addRef();
        drop(std::exchange(object_, object));
    }

    T* object_ = nullptr;
};

// A new counted object, held by the pointer that is returned.
template <class T, class... Args>
VornSmartPointer<T> makeCounted(Args&&... args) {
    return VornSmartPointer<T>(new T(std::forward<Args>(args)...));
}

}  // namespace VornSupport

template <class T>
struct std::hash<VornSupport::VornSmartPointer<T>> {
    std::size_t operator()(const VornSupport::VornSmartPointer<T>& p) const noexcept {
        return std::hash<T*>()(p.get());
    }
};
