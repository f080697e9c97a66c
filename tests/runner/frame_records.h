// The records of a signal frame.
#pragma once

#include <asm/sigcontext.h>
#include <ucontext.h>

#include <cstdint>
#include <cstring>
#include <vector>

struct Record {
  unsigned char* at;
  std::uint32_t magic, size;
};

/// In order, the last one's magic 0; those of the extra space follow its own.
inline std::vector<Record> records(void* context) {
  std::vector<Record> found;
  auto* at = reinterpret_cast<unsigned char*>(static_cast<ucontext_t*>(context)->uc_mcontext.__reserved);
  for (;;) {
    _aarch64_ctx head;
    std::memcpy(&head, at, sizeof head);
    found.push_back({at, head.magic, head.size});
    if (head.magic == 0) return found;
    at += head.size;
    if (head.magic == EXTRA_MAGIC) {
      extra_context extra;
      std::memcpy(&extra, found.back().at, sizeof extra);
      at = reinterpret_cast<unsigned char*>(extra.datap);
    }
  }
}

/// Null if there is none.
inline unsigned char* record_of(void* context, std::uint32_t magic) {
  for (const Record& r : records(context)) {
    if (r.magic == magic) return r.at;
  }
  return nullptr;
}
