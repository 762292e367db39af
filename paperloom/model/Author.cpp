#include "paperloom/model/Author.h"

#include <utility>

#include "paperloom/model/internal/Reading.h"
#include "paperloom/model/internal/Reserve.h"

namespace paperloom {

std::vector<Author> Author::parseList(const JSONObjectList& list) {
  std::vector<Author> authors;
  reserveFor(authors, list);
  for (const JSONObject& json : list) {
    if (auto name = json.string("name")) {
      authors.push_back({std::move(*name), json.string("jobTitle")});
    } else {
      leaveOut(json, "the author is not named");
    }
  }
  return authors;
}

}  // namespace paperloom
