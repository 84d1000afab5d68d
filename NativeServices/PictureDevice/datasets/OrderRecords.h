// The vendor data sets of orders, read from a device and, as exact inverses, written.
#pragma once

#include "NativeServices/PictureDevice/datasets/Orders.h"
#include "NativeServices/PictureDevice/datasets/XTMutablePTPDataSet.h"
#include "NativeServices/PictureDevice/datasets/XTPTPDataSet.h"

namespace tarvo {

// Each reads from the current position. Raises NSRangeException when the data set ends early.

EmailOrderRecord scanEmailOrder(XTPTPDataSet& dataSet);
PrintOrderRecord scanPrintOrder(XTPTPDataSet& dataSet);
/// The order id takes 20 bytes here, whatever they are: those that are no GUID read as zeros.
TransferOrderRecord scanTransferOrder(XTPTPDataSet& dataSet);

// An order id that is no GUID text is written as a UInt32 0, as storeGUID() does; that of a
// transfer order, whose reader could not take it, as 16 zero bytes.

void storeEmailOrder(XTMutablePTPDataSet& dataSet, const EmailOrderRecord& order);
void storePrintOrder(XTMutablePTPDataSet& dataSet, const PrintOrderRecord& order);
void storeTransferOrder(XTMutablePTPDataSet& dataSet, const TransferOrderRecord& order);

}  // namespace tarvo
