#pragma once

/// Root of every interface. An object is passed around as its IInterface and asked by number for more; the
/// caller recovers the typed interface with a dynamic_cast. Deleting through this pointer is allowed for
/// whoever owns the object. Slot order is ABI, here and in every interface that derives from this one.
class IInterface {
public:
    virtual ~IInterface() {}

    /// Any thread, unless the object says otherwise. Returns the object's IInterface for an identifier of
    /// InterfaceIds.h that it answers, null for every other. The pointer is borrowed: it lives as long as the
    /// object.
    virtual IInterface* queryInterface(unsigned int id) = 0;
};
