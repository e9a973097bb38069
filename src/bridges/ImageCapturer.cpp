#include "ImageCapturer.h"

#include "GRef.h"

namespace orvane {

namespace {

std::optional<std::string> textMember(JSCValue* body, const char* name) {
    if (!jsc_value_object_has_property(body, name))
        return std::nullopt;
    Ref<JSCValue> value = adopt(jsc_value_object_get_property(body, name));
    if (!value || !jsc_value_is_string(value.get()))
        return std::nullopt;
    GCharPtr text(jsc_value_to_string(value.get()));
    if (!text || !*text.get())
        return std::nullopt;
    std::string result = text.get();
    if (result.size() > ImageCapturer::kMaxAddressBytes)
        return std::nullopt;
    return result;
}

} // namespace

void ImageCapturer::receive(JSCValue* body) {
    if (!body || !jsc_value_is_object(body) || jsc_value_is_array(body) || jsc_value_is_function(body)) {
        m_src.reset();
        m_linkSrc.reset();
        return;
    }
    m_src = textMember(body, "img");
    m_linkSrc = textMember(body, "link");
}

} // namespace orvane
