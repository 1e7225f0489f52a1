#include "host/preload_ledger.h"

#include "cache/html_check.h"

namespace host {
namespace {

// For a preload that has ended: why its response could not be held.
NotServed WhyNotHeld(const PreloadRecord& record) {
  if (record.responseBlock.empty()) return NotServed::Failed;
  if (record.declaredLength < 0) return NotServed::NoDeclaredLength;
  if (record.refused) return NotServed::OverSizeLimit;
  if (kiv::MentionsHtml(record.responseBlock)) return NotServed::Html;
  return record.status != 200 ? NotServed::StatusNot200 : NotServed::Failed;
}

}  // namespace

NotServed WhyNotAtHand(const PreloadRecord* record) {
  if (record == nullptr) return NotServed::NotKnownYet;
  if (record->notOrdered == NotServed::FreshInDiskCache)
    return NotServed::WentStale;  // else nobody asks here
  if (record->notOrdered != NotServed::None) return record->notOrdered;
  if (record->invalidated) return NotServed::Invalidated;
  if (record->used) return NotServed::UsedUp;
  switch (record->stage) {
    case PreloadStage::Ordered:
      return record->limitReached ? NotServed::LimitReached : NotServed::BrowserAskedFirst;
    case PreloadStage::Launched:
      return NotServed::StillRunning;
    case PreloadStage::Dropped:
      return NotServed::Dropped;
    case PreloadStage::NotOrdered:
    case PreloadStage::Held:
    case PreloadStage::Failed:
      return WhyNotHeld(*record);
  }
  return NotServed::Failed;
}

}  // namespace host
