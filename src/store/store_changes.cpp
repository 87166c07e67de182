#include "store/store_changes.h"

#include <algorithm>
#include <mutex>

#include "store/store_record.h"

namespace certkern {
namespace {

constexpr ElementType kTypes[] = {ElementType::Certificate, ElementType::Crl};

}  // namespace

RemovedElements::~RemovedElements() {
  while (first_) {
    StoreElement* const element = std::exchange(first_, first_->nextRemoved);
    element->nextRemoved = nullptr;
    ReleaseElement(element);
  }
}

void RemovedElements::push(StoreElement& element) noexcept {
  element.nextRemoved = std::exchange(first_, ShareElement(element).release());
}

void RemovedElements::takeOver(RemovedElements&& others) noexcept {
  while (others.first_) {
    StoreElement* const element = std::exchange(others.first_, others.first_->nextRemoved);
    element->nextRemoved = std::exchange(first_, element);
  }
}

StoreChanges::~StoreChanges() {
  for (const ElementOwner& each : changed_) each->propertiesChanged = true;
  if (tookMarks_) store_.propertiesChanged = true;
  const std::lock_guard guard(store_.lock);
  store_.removed.takeOver(std::move(removed_));
}

void StoreChanges::take() {
  upTo_ = store_.dirty.now();  // before anything is looked at
  const std::lock_guard guard(store_.lock);
  takeAdditions();
  takePropertyChanges();
  removed_ = std::exchange(store_.removed, {});
}

// Links are left out of the file, and stand anywhere among the others.
void StoreChanges::takeAdditions() {
  for (const ElementType type : kTypes) {
    const auto before = static_cast<std::ptrdiff_t>(added_.size());
    for (StoreElement* each = store_.list(type).newest; each; each = each->next) {
      if (each->isLink) continue;
      if (each->isFiled) break;
      each->propertiesChanged = false;
      added_.push_back(ShareElement(*each));
    }
    std::reverse(added_.begin() + before, added_.end());
  }
}

void StoreChanges::takePropertyChanges() {
  const uint64_t throughLinks = ChangesThroughLinks();  // before the blocks are looked at
  const bool byLink = std::exchange(store_.changesThroughLinks, throughLinks) != throughLinks;
  tookMarks_ = store_.propertiesChanged.exchange(false) || byLink;
  if (!tookMarks_) return;
  for (const ElementType type : kTypes) {
    for (StoreElement* each = store_.list(type).newest; each; each = each->next) {
      if (!each->isFiled) continue;
      if (each->properties->changedThroughLink.exchange(false)) each->propertiesChanged = true;
      if (!each->propertiesChanged.load()) continue;
      changed_.push_back(ShareElement(*each));
      each->propertiesChanged = false;
    }
  }
}

void StoreChanges::written(const FileLayout& layout, const Places& places) noexcept {
  std::vector<ElementOwner> changed;  // freed without the lock, as are those that were removed
  RemovedElements removed;
  const std::lock_guard guard(store_.lock);
  store_.layout = layout;
  for (const ElementOwner& each : added_) {
    each->isFiled = true;
    if (!each->linked) store_.removed.push(*each.get());  // it has left while it was written
  }
  for (const auto& [element, place] : places) element->place = place;
  changed.swap(changed_);
  tookMarks_ = false;
  removed = std::exchange(removed_, {});
  store_.dirty.writtenUpTo(upTo_);
}

}  // namespace certkern
