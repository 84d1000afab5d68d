// The messages that a PTP device understands, as transactions on a channel that the caller holds.
#pragma once

#include <ctime>
#include <string>

#include "Utilities/Status.h"
#include "platform/imagecapture/PTPChannel.h"
#include "platform/imagecapture/PTPPassThroughPB.h"

namespace tarvo {

/// Runs the transaction that `record` describes, its data phase straight out of or into the
/// record's data area, or its source or sink where it has one, and fills in what came back:
/// response code, response parameters (those that the device left out are 0, a fifth is dropped)
/// and, for a receive, the number of bytes that are there, 0xFFFFFFFF where a sink has taken more;
/// what did not fit is dropped. On failure the response code is left alone. kBadParameter for a
/// record that does not fit together, has 4 GiB and more to send or asks for what is the service's
/// own (OpenSession, CloseSession); otherwise as for PTPChannel::transact.
Status passThrough(PTPChannel& channel, PTPPassThroughRecord& record, std::string* why);

/// Sets property 0x5011 (DateTime, ISO 15740) to `now` in local time. A response other than OK is
/// returned as it came.
Status setClock(PTPChannel& channel, std::time_t now, std::string* why);

}  // namespace tarvo
