// A made-up machine that is served, with its register, and a trouble of it.
#pragma once

#include <utility>

#include "hardware/register.h"
#include "service/machine.h"
#include "tree.h"

namespace tavo::service {

inline const Trouble trouble{
    .key = "fan 1", .class_code = 29, .unit = 0, .severity = "major", .cause = 2, .description = "Fan 1 has failed"};

// What the register keeps once it is a fault.
inline const RegisteredFault kept_fault{.index = 1,
                                        .class_code = trouble.class_code,
                                        .unit = trouble.unit,
                                        .severity = trouble.severity,
                                        .cause = trouble.cause,
                                        .description = trouble.description,
                                        .affected = "",
                                        .affected_oid = "",
                                        .first_time = 1,
                                        .source = "told"};

class ServedTree : public Tree {
 protected:
  Surroundings surroundings() const { return {.var = directory_ / "var", .sd_socket = directory_ / "sd"}; }
  Machine machine(Inventory inventory) const { return {std::move(inventory), surroundings()}; }

  Register register_{directory_ / "register.json"};
};

}  // namespace tavo::service
