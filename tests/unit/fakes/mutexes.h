// Makes one of the module's mutex calls fail: pthread_mutex_lock, pthread_mutex_trylock or pthread_mutex_unlock.
#pragma once

namespace fakes {

// The calling thread's next mutex call does nothing and returns `error`; later ones are real.
void fail_next_mutex_call(int error);

}  // namespace fakes
