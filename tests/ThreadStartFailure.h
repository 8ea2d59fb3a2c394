// Makes the n-th next thread start of this test program fail with EAGAIN, as a process at its
// thread limit sees it, so that the callers' handling of a failed std::thread start can be tested.
// The program's pthread_create is replaced by one that forwards to the real one otherwise.
#pragma once

namespace testthreads {

// The next `allowed` thread starts succeed and the one after fails once; -1 turns it off.
void FailThreadStartAfter(int allowed);

// Thread starts that failed since the program began.
int FailedThreadStarts();

}  // namespace testthreads
