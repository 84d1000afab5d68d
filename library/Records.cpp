#include "library/Records.h"

#include <utility>

#include "library/access/DeviceBook.h"
#include "library/access/DeviceState.h"

namespace tarvo::library {

const XTExtendedObjectInfo& recordOf(const ObjectInfo& object) { return *object.data().info; }

const PTPStorageInfo& recordOf(const StoreInfo& store) { return *store.data().info; }

const PTPPropertyDescription& recordOf(const PropertyInfo& property) {
  return property.data().description;
}

const AddressBook& recordOf(const ContactBook& book) { return book.data().book; }

ContactBook contactBook(AddressBook book) {
  return valueOf<ContactBook>({.book = std::move(book)});
}

}  // namespace tarvo::library
