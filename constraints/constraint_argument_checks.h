#ifndef VELMOR_CONSTRAINTS_CONSTRAINT_ARGUMENT_CHECKS_H_
#define VELMOR_CONSTRAINTS_CONSTRAINT_ARGUMENT_CHECKS_H_

// Argument checks of the constraints' questions. They are macros so that a
// message is located at the calling operation of the constraint's own source.

#include <stdexcept>

#include "utils/error_messages.h"

// Throws std::invalid_argument "Invalid element = <e>." unless 0 <= e < n.
#define VELMOR_CHECK_CONSTRAINT_ELEMENT(e, n)                            \
  do {                                                                   \
    if ((e) < 0 || (e) >= (n)) {                                         \
      VELMOR_THROW(std::invalid_argument, "Invalid element = %d.", (e)); \
    }                                                                    \
  } while (false)

// Throws std::invalid_argument with `format` (given the set's ground set size,
// then n) when the set `s` lives on a ground set larger than n.
#define VELMOR_CHECK_CONSTRAINT_GROUND_SIZE(s, n, format)                    \
  do {                                                                       \
    if ((s).GroundSetSize() > (n)) {                                         \
      VELMOR_THROW(std::invalid_argument, format, (s).GroundSetSize(), (n)); \
    }                                                                        \
  } while (false)

#endif  // VELMOR_CONSTRAINTS_CONSTRAINT_ARGUMENT_CHECKS_H_
