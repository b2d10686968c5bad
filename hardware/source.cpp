#include "hardware/source.h"

namespace tavo::service {

// A warning: whoever has taken the part out for good knows, and says so.
Trouble missing(Trouble part, const MissingPart &missing) {
  part.severity = "warning";
  part.cause = cause::missing;
  part.description += " is missing";
  part.missing = missing;
  return part;
}

}  // namespace tavo::service
