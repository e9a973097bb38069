#include "web/MessageSender.h"

#include "base/GRef.h"
#include "web/PageStamp.h"
#include "web/WebViewManager.h"

#include <optional>
#include <string>

namespace orvane {

namespace {

std::optional<std::string> stampOf(JSCValue* body) {
    if (!body)
        return std::nullopt;
    JSCValue* text = body;
    Ref<JSCValue> member;
    if (jsc_value_is_object(body) && !jsc_value_is_array(body)) {
        if (!jsc_value_object_has_property(body, MessageSender::kStampMember))
            return std::nullopt;
        member = adopt(jsc_value_object_get_property(body, MessageSender::kStampMember));
        text = member.get();
    }
    if (!text || !jsc_value_is_string(text))
        return std::nullopt;
    GCharPtr stamp(jsc_value_to_string(text));
    return stamp ? std::optional<std::string>(stamp.get()) : std::nullopt;
}

} // namespace

WebKitWebView* MessageSender::sender(const WebViewManager& manager, JSCValue* body) {
    auto stamp = stampOf(body);
    if (!stamp)
        return nullptr;
    auto pageID = PageStamp::verify(*stamp);
    if (!pageID)
        return nullptr;
    return manager.viewWithPageID(*pageID);
}

} // namespace orvane
