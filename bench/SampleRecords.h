// Data sets of the sizes that cameras send, for programs that measure how they are read and
// written.
//
// A record has read(), which reads one from a data set, and write() or written(), which make one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "NativeServices/PictureDevice/datasets/XTExtendedObjectInfo.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

namespace tarvo::bench {

/// Makes the compiler believe that `value` is looked at.
template <typename T>
void keep(const T& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

inline std::vector<std::uint16_t> codes(std::size_t count, std::uint16_t first) {
  std::vector<std::uint16_t> values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

/// What a camera of the maker answers to GetDeviceInfo.
struct DeviceInfo {
  static void write(XTMutablePTPDataSet& set) {
    static const auto operations = codes(40, 0x1001);
    static const auto events = codes(12, 0x4002);
    static const auto properties = codes(30, 0x5001);
    static const auto captureFormats = codes(2, 0x3801);
    static const auto imageFormats = codes(8, 0x3801);
    set.storeUInt16(100);
    set.storeUInt32(0x5452);
    set.storeUInt16(100);
    set.storeString("tarvo.example: 1.0;");
    set.storeUInt16(0);
    for (const auto* list : {&operations, &events, &properties, &captureFormats, &imageFormats})
      set.storeUInt16Array(*list);
    for (const char* text : {"Tarvo Imaging", "Tarvo Lumo 620", "1.04", "KCXTL00001234"})
      set.storeString(text);
  }
  static void read(XTPTPDataSet& set) {
    keep(set.scanUInt16());
    keep(set.scanUInt32());
    keep(set.scanUInt16());
    keep(set.scanString());
    keep(set.scanUInt16());
    for (int i = 0; i < 5; ++i)
      keep(set.scanUInt16Array());
    for (int i = 0; i < 4; ++i)
      keep(set.scanString());
  }
};

/// The object handles of a full card.
struct TenThousandHandles {
  static void write(XTMutablePTPDataSet& set) {
    static const std::vector<std::uint32_t> handles = [] {
      std::vector<std::uint32_t> values(10000);
      std::iota(values.begin(), values.end(), 0x10001U);
      return values;
    }();
    set.storeUInt32Array(handles);
  }
  static void read(XTPTPDataSet& set) { keep(set.scanUInt32Array()); }
};

/// A hundred file names of the usual length.
struct HundredStrings {
  static void write(XTMutablePTPDataSet& set) {
    for (int i = 0; i < 100; ++i)
      set.storeString("100_0001.JPG");
  }
  static void read(XTPTPDataSet& set) {
    for (int i = 0; i < 100; ++i)
      keep(set.scanString());
  }
};

/// What a camera tells of a picture, with and without the maker's extension.
template <bool kExtended>
struct ObjectInfo {
  static XTExtendedObjectInfo picture() {
    auto info = kExtended ? XTExtendedObjectInfo::initExtended() : XTExtendedObjectInfo();
    info.setStorageID(0x10001);
    info.setObjFmtCode(0x3801);
    info.setCompressedSize(2345678);
    info.setThumbFmtCode(0x3808);
    info.setImagePixWidth(3264);
    info.setImagePixHeight(2448);
    info.setParentObject(0x20003);
    info.setFileName("100_0001.JPG");
    info.setCaptureDateStr("20260301T101112");
    info.setModDataStr("20260301T101112");
    info.setKeywordsStr("a b c");
    info.setFileCreationDateStr("20260301T101112");
    info.setQuickFingerPrint({1, 2, 3});
    info.setFullFingerPrint({4, 5, 6});
    info.setTextAnnotation("At the lake");
    info.setAlbumList({0x30001, 0x30002});
    info.setPrintOrderList({0x40001});
    return info;
  }
  /// As writers of one record do it, not behind what was written before.
  static XTMutablePTPDataSet written(std::int32_t byteOrder) {
    static const XTExtendedObjectInfo info = picture();
    return info.dataSetWithByteOrder(byteOrder);
  }
  static void read(XTPTPDataSet& set) {
    keep(XTExtendedObjectInfo::initWithDataSet(set, kExtended));
  }
};

template <typename Record>
XTMutablePTPDataSet written(std::int32_t byteOrder) {
  if constexpr (requires { Record::written(byteOrder); }) {
    return Record::written(byteOrder);
  } else {
    auto set = XTMutablePTPDataSet::dataSetWithByteOrder(byteOrder);
    Record::write(set);
    return set;
  }
}

}  // namespace tarvo::bench
