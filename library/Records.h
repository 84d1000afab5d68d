// The records behind the public values, for programs of this tree that show all that a device told.
#pragma once

#include "NativeServices/PictureDevice/datasets/AddressBook.h"
#include "NativeServices/PictureDevice/datasets/PTPRecords.h"
#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "tarvo/AddressBook.h"
#include "tarvo/Device.h"

namespace tarvo::library {

// Each lives as long as the value. Any thread.

/// Of a volume's object it says what a camera would tell.
const XTExtendedObjectInfo& recordOf(const ObjectInfo& object);
/// Not of one that is empty: that has none.
const PTPStorageInfo& recordOf(const StoreInfo& store);
const PTPPropertyDescription& recordOf(const PropertyInfo& property);
const AddressBook& recordOf(const ContactBook& book);
/// The other way: of what was read from a file.
ContactBook contactBook(AddressBook book);

}  // namespace tarvo::library
