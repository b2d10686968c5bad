// Watches for threads that a test starts: with pthread_create, with std::thread, or with what is built on them.
#pragma once

namespace tavo {

// Called where a thread is started.
void note_started_thread();

// Forgets those that were started.
void forget_started_threads();

// Fails the test when a thread was started since then, unless `file`, where the test is, includes
// tests/harness/threaded.h.
void expect_threads_in_threaded_files_only(const char *file);

// Threads of this process that are running now, the caller among them.
int running_threads();

// Fails the test when there are more threads than this and none of them ends within a moment.
void expect_running_threads(int most);

}  // namespace tavo
