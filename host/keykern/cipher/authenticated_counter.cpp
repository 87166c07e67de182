#include "keykern/cipher/authenticated_counter.h"

namespace keykern {

bool AuthenticatedCounter::process(std::span<BYTE> data) {
  if (!tag_.empty()) return false;
  if (direction_ == Direction::Decrypt) return keystream_.process(data) && mac_->add(data);
  return mac_->add(data) && keystream_.process(data);
}

SecretBytes AuthenticatedCounter::tag() {
  if (!tag_.empty()) return tag_;
  SecretBytes tag = mac_->finish();
  if (!keystream_.process(tag)) return {};
  tag_ = tag;
  return tag;
}

}  // namespace keykern
