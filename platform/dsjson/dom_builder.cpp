#include "platform/dsjson/dom_builder.h"

#include <iterator>
#include <utility>

namespace dsjson {

bool DomBuilder::key(std::string& name) {
  openValues.back().key = std::move(name);
  return true;
}

bool DomBuilder::open(Json empty) {
  if (openValues.size() == kMaxDepth) return false;
  openValues.push_back({std::move(empty)});
  return true;
}

bool DomBuilder::close() {
  Json whole = std::move(openValues.back().value);
  openValues.pop_back();
  return add(std::move(whole));
}

bool DomBuilder::add(Json value) {
  if (openValues.empty()) {
    *root = std::move(value);
  } else if (openValues.back().value.is_array()) {
    openValues.back().value.push_back(std::move(value));
  } else {
    setMember(&openValues.back(), std::move(value));
  }
  return true;
}

bool DomBuilder::addNumber(Json number) {
  if (largeSeen < large.size() && large[largeSeen].index == numbersSeen) {
    number = large[largeSeen++].value;
  }
  ++numbersSeen;
  return add(std::move(number));
}

// The last of two members of one name wins, in the place of the first.
void DomBuilder::setMember(Open* object, Json value) {
  auto& members = object->value.get_ref<Json::object_t&>();
  const auto [place, isNew] = object->places.try_emplace(object->key, members.size());
  if (isNew) {
    members.emplace_back(std::move(object->key), std::move(value));
  } else {
    std::next(members.begin(), static_cast<ptrdiff_t>(place->second))->second = std::move(value);
  }
}

}  // namespace dsjson
