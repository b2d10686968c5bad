// Lock annotations, which clang checks with -Wthread-safety and other compilers ignore.
#pragma once

// One macro for all of them: which class is a lock, what a lock guards, which locks a function acquires, releases or
// requires. It is a macro because most of these attributes name members and parameters, which are in scope only after
// the declarator, where the standard [[...]] form is not allowed, and because g++ rejects their names.
//
//   class TAVO_LOCKING(capability("mutex")) Lock;
//   int rows TAVO_LOCKING(guarded_by(lock));
//   void rebuild() TAVO_LOCKING(requires_capability(lock));
#if defined(__clang__)
#define TAVO_LOCKING(attribute) __attribute__((attribute))
#else
#define TAVO_LOCKING(attribute)
#endif
