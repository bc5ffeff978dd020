#pragma once

// For the Windows sources of this folder only.

#include <windows.h>

#include <utility>
#include <vector>

namespace VornPlatform {

// Names the only handles that a child may inherit, whatever else of ours happens
// to be inheritable. None of them twice, one at least.
class InheritedHandles {
public:
    explicit InheritedHandles(std::vector<HANDLE> handles) : handles_(std::move(handles)) {
        SIZE_T size = 0;
        ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        memory_.resize(size);
        auto* const made = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data());
        if (!::InitializeProcThreadAttributeList(made, 1, 0, &size)) return;
        list_ = made;
        good_ = ::UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                            handles_.data(), handles_.size() * sizeof(HANDLE),
                                            nullptr, nullptr) != 0;
    }
    ~InheritedHandles() {
        if (list_ != nullptr) ::DeleteProcThreadAttributeList(list_);
    }
    InheritedHandles(const InheritedHandles&) = delete;
    InheritedHandles& operator=(const InheritedHandles&) = delete;

    bool good() const { return good_; }
    LPPROC_THREAD_ATTRIBUTE_LIST list() const { return list_; }

private:
    std::vector<HANDLE> handles_;
    std::vector<unsigned char> memory_;
    LPPROC_THREAD_ATTRIBUTE_LIST list_ = nullptr;
    bool good_ = false;
};

}  // namespace VornPlatform
