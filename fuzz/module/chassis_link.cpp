// The chassis link, both ways: peers that come, send, read a part and fail at any moment, while the block changes.
#include <algorithm>
#include <vector>

#include "fuzz/harness/platform.h"
#include "threads/cmc_thread.h"

namespace tavo::fuzz {

void try_input(Octets input) {
  Platform platform(input);
  std::vector<unsigned char> block;
  const auto replace_block = [&] {
    if (!platform.answers.ConsumeBool()) {
      return;
    }
    // Exactly as large as it says, for AddressSanitizer.
    std::vector<unsigned char> next(platform.answers.ConsumeIntegralInRange<std::size_t>(0, 3000), 'b');
    pthread_mutex_lock(&cmc_lock);
    block.swap(next);
    cmc_data_buffer = block.data();
    transfer_data_len = static_cast<int32_t>(block.size());
    pthread_mutex_unlock(&cmc_lock);
  };
  platform.before_select = replace_block;
  replace_block();
  expect(create_cmc_thread() == 0, "the thread starts");
  join_cmc_thread();
  expect(sock_fd == -1 && data_fd == -1, "the link closes what it has opened");
  cmc_data_buffer = nullptr;
  transfer_data_len = 0;
}

}  // namespace tavo::fuzz
