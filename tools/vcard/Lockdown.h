// A process that gives up all that it does not need, before it meets what a stranger has made.
//
//   openWhatIsNeeded();
//   lockDown();
//   answer(0, 1);
//
// What remains is memory, and reading and writing of the descriptors that are open by then: no new
// privileges, files, processes or network. Two locks of the kernel stand behind each other, so that
// a hole in one does not open the other: Landlock, which knows files, ports and signals, and a list
// of the only system calls that there are. A call beyond it ends the process by SIGSYS, but for the
// opening of files, which fails as on a machine that has none: libraries look for files that they
// can do without.
#pragma once

namespace tarvo::vcard {

/// For ever, in this process. Single-threaded processes only. Raises std::system_error where the
/// kernel has no lists of system calls; one without Landlock is locked all the same.
void lockDown();

/// Landlock alone, with nothing allowed. False where the kernel does not have it.
bool denyFiles();

}  // namespace tarvo::vcard
