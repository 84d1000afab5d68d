// How large the vendor data sets of a device can be, by what it holds: the room for receiving them.
//
// A list in a data set can be no longer than there are objects of its kind on the device. Each kind
// is counted once and the count kept, until its owner sets it to -1.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>

namespace tarvo {

/// Bytes of a UINT32 array of `count` elements; a count that is not known (-1) gives 0.
std::uint32_t arrayLength(std::int64_t count);
/// The same of `kept` elements, which are counted first where that is -1. `count` gives -1 where it
/// cannot tell.
std::uint32_t arrayLength(std::int32_t& kept, const std::function<std::int32_t()>& count);

/// Number of objects of some formats together, each counted by `count`; -1 where one of them cannot
/// be told.
std::int32_t sumOfCounts(std::initializer_list<std::uint16_t> formats,
                         const std::function<std::int32_t(std::uint16_t format)>& count);

/// Bytes of a data set with arrays of that length and `rest` beside them, at most what 32 bits can
/// say.
std::uint32_t roomForDataSet(std::uint64_t arrays, std::uint32_t rest);

}  // namespace tarvo
