#pragma once

namespace base {

/// Lets a std::unique_ptr release an object of a C library: std::unique_ptr<BIO, base::Release<BIO_free>>.
template <auto release>
struct Release {
    template <class T>
    void operator()(T* pObject) const {
        release(pObject);
    }
};

}  // namespace base
