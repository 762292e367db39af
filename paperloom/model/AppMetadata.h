#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "paperloom/model/GlobalMetadata.h"
#include "paperloom/model/PaperloomError.h"
#include "paperloom/model/SectionMetaData.h"
#include "paperloom/platform/Export.h"
#include "paperloom/platform/JSON.h"

namespace paperloom {

using SectionMetadataList = std::vector<std::shared_ptr<const SectionMetadataProtocol>>;

// The configuration document: how the sections are displayed, in the document's order, and what
// holds for all of them.
class PAPERLOOM_EXPORT AppMetadataProtocol {
 public:
  virtual ~AppMetadataProtocol() = default;
  virtual const SectionMetadataList& sectionMetadata() const = 0;
  // Never null.
  virtual const std::shared_ptr<const GlobalMetadataProtocol>& globalMetadata() const = 0;
};

class PAPERLOOM_EXPORT AppMetadata final : public AppMetadataProtocol {
 public:
  AppMetadata(SectionMetadataList sections, std::shared_ptr<const GlobalMetadataProtocol> global)
      : sectionMetadata_(std::move(sections)), globalMetadata_(std::move(global)) {}

  // The first bad section entry fails the whole. On any thread.
  [[nodiscard]] static Result<std::shared_ptr<const AppMetadataProtocol>> parse(
      const JSONObject& json);

  const SectionMetadataList& sectionMetadata() const override { return sectionMetadata_; }
  const std::shared_ptr<const GlobalMetadataProtocol>& globalMetadata() const override {
    return globalMetadata_;
  }

  // For the owner, on one thread, before the record is handed on.
  void setSectionMetadata(SectionMetadataList sections) { sectionMetadata_ = std::move(sections); }
  void setGlobalMetadata(std::shared_ptr<const GlobalMetadataProtocol> global) {
    globalMetadata_ = std::move(global);
  }

 private:
  SectionMetadataList sectionMetadata_;
  std::shared_ptr<const GlobalMetadataProtocol> globalMetadata_;
};

}  // namespace paperloom
