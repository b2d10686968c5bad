// Lock annotations, which clang checks with -Wthread-safety and other compilers do not see.
#pragma once

// The one spelling for all of them: a capability's class, what a lock guards, what a function takes, gives back or
// needs held. A macro because most of these attributes name members and parameters that are in scope only behind the
// declarator, where the standard's [[...]] form is not allowed, and because g++ rejects the names they use.
//
//   class TAVO_LOCKING(capability("mutex")) Lock;
//   int rows TAVO_LOCKING(guarded_by(lock));
//   void rebuild() TAVO_LOCKING(requires_capability(lock));
#if defined(__clang__)
#define TAVO_LOCKING(attribute) __attribute__((attribute))
#else
#define TAVO_LOCKING(attribute)
#endif
