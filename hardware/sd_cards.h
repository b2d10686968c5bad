// SD cards and their partitions.
#pragma once

#include "hardware/kernel_events.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class SdCardSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each reader's slot and each partition's number.
  SdCardSource(Roots roots, Register &numbers) : roots_(std::move(roots)), numbers_(numbers) {}

  std::string_view name() const override { return "SD-cards"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(60); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  void read_card(const std::filesystem::path &card, SdCards &cards, Finding &finding);
  void read_partitions(const std::filesystem::path &disk, const std::string &place, SdCards &cards, Finding &finding);

  const Roots roots_;
  Register &numbers_;
  KernelEvents events_{"mmc", "block"};
};

}  // namespace tavo::service
