// A mark for entries of short calls that hold no text or digits of their own: the stack protector
// would cost some per cent of the call and guard nothing. What they call keeps its own.
#ifndef KOVAFRAME_H
#define KOVAFRAME_H

#if defined(__has_attribute)
#if __has_attribute(no_stack_protector)
#define HOLDS_NO_TEXT __attribute__((no_stack_protector))
#endif
#endif
#ifndef HOLDS_NO_TEXT
#define HOLDS_NO_TEXT
#endif

#endif
