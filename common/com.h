// Holders for what COM hands out: an interface pointer that is released
// when it goes, and a system string that is freed when it goes. They pair
// every reference and string with its release in one place, so an early
// return cannot leak one and nothing is released twice.
#pragma once

#include <windows.h>
#include <oleauto.h>

// One reference to an interface. `&p` hands a call the place to put a new
// reference (releasing the one held), as the object model's getters take it.
template <class T> class ComPtr {
  public:
    ComPtr() = default;
    // Takes over a reference the caller already holds.
    explicit ComPtr(T *p) : p_(p) {}
    ~ComPtr() { Reset(); }
    ComPtr(const ComPtr &) = delete;
    ComPtr &operator=(const ComPtr &) = delete;

    T **operator&()
    {
        Reset();
        return &p_;
    }
    T *operator->() const { return p_; }
    T *get() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    // Releases the reference held and takes over `p`'s.
    void Reset(T *p = nullptr)
    {
        if (p_)
            p_->Release();
        p_ = p;
    }
    // Gives up the reference without releasing it.
    T *Detach()
    {
        T *p = p_;
        p_ = nullptr;
        return p;
    }

  private:
    T *p_ = nullptr;
};

// A system string (BSTR) this code made, freed with the system's
// SysFreeString.
class Bstr {
  public:
    explicit Bstr(const WCHAR *s) : b_(SysAllocString(s)) {}
    ~Bstr() { SysFreeString(b_); }
    Bstr(const Bstr &) = delete;
    Bstr &operator=(const Bstr &) = delete;
    operator BSTR() const { return b_; }

  private:
    BSTR b_;
};
