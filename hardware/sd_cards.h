// SD cards and their partitions.
#pragma once

#include <functional>
#include <string>

#include "hardware/kernel_events.h"
#include "hardware/register.h"
#include "hardware/source.h"

namespace tavo::service {

class SdCardSource : public Source {
 public:
  // `numbers` outlives the source. It keeps each reader's slot, which of them should have a card, and each partition's
  // number.
  SdCardSource(Roots roots, Register &numbers) : roots_(std::move(roots)), numbers_(numbers) {}

  std::string_view name() const override { return "SD-cards"; }
  std::chrono::seconds interval() const override { return std::chrono::seconds(60); }
  int watch() const override { return events_.descriptor(); }
  Finding read() override;

 private:
  void read_card(const std::filesystem::path &card, SdCards &cards, Finding &finding);
  void read_partitions(const std::filesystem::path &disk, const std::string &place, SdCards &cards, Finding &finding);

  // Frees the numbers of partitions that are gone by their keys, or by the places of their cards.
  void free_partitions(const std::function<bool(const std::string &key, const std::string &place)> &is_gone);

  const Roots roots_;
  Register &numbers_;
  KernelEvents events_{"mmc", "block"};
};

}  // namespace tavo::service
