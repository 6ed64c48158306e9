#ifndef CDXTESTS_LIBRARY_ELEMENTS_H
#define CDXTESTS_LIBRARY_ELEMENTS_H

#include <CdxObjects.h>
#include <support/xal/RecordingRegistry.h>

#include <memory>
#include <string>

/// Elements for tests, out of the JSON that a service would deliver.
namespace cdxtest {

template <class Element>
Element element(const std::string& json) {
    return Element(jsonObject(json));
}

template <class Element>
std::shared_ptr<const Element> sharedElement(const std::string& json) {
    return std::make_shared<const Element>(jsonObject(json));
}

} // namespace cdxtest

#endif
