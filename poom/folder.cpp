// A folder: the calendar, or the infrared folder that stands in for beaming.
#include "objects.h"

#include <new>

namespace poom {

namespace {

class Folder : public Dispatch<IFolder, IID_IFolder> {
public:
    Folder(const Origin& origin, int kind) : origin_(origin), kind_(kind) {}
    HRESULT STDMETHODCALLTYPE get_Items(IPOutlookItemCollection** pp) override {
        if (!pp) return E_POINTER;
        *pp = NewCollection(origin_, kind_ == olFolderInfrared);
        return *pp ? S_OK : E_OUTOFMEMORY;
    }
    HRESULT STDMETHODCALLTYPE get_DefaultItemType(int* p) override {
        if (!p) return E_POINTER;
        *p = olAppointmentItem;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_Application(IPOutlookApp** pp) override { return origin_.app()->get_Application(pp); }
    // Beaming (the infrared folder's outbox) arrives with the day view.
    HRESULT STDMETHODCALLTYPE AddItemToInfraredFolder(int, IDispatch*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SendToInfrared() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveFromInfrared(IPOutlookItemCollection** pp) override {
        if (pp) *pp = nullptr;
        return E_NOTIMPL;
    }

private:
    Origin origin_;
    int kind_;
};

}  // namespace

IFolder* NewFolder(const Origin& origin, int kind) { return new (std::nothrow) Folder(origin, kind); }

}  // namespace poom
