#include "MessageSender.h"

#include "GRef.h"
#include "MailService.h"
#include "PageAddress.h"
#include "PageStamp.h"

#include <cstring>
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
    if (!stamp || strlen(stamp.get()) > PageStamp::kMaxLength)
        return std::nullopt;
    return std::string(stamp.get());
}

WebKitWebView* refuse(std::string_view handler, const char* reason, std::string_view detail = {}) {
    g_info("Refused a message to %.*s %s%.*s", static_cast<int>(handler.size()), handler.data(), reason,
        static_cast<int>(detail.size()), detail.data());
    return nullptr;
}

} // namespace

bool MessageSender::showsOwnPage(WebKitWebView* view, const MailService& service) {
    if (!view)
        return false;
    // Before its first commit a view shows its initial empty document.
    const char* uri = PageAddress::committed(view);
    std::string_view address = uri ? uri : "about:blank";
    if (address == "about:blank")
        return true;
    if (address.starts_with("blob:"))
        address.remove_prefix(5);
    return service.ownsAddress(address);
}

WebKitWebView* MessageSender::sender(const std::vector<WebKitWebView*>& views, const MailService& service,
    std::string_view handler, JSCValue* body) {
    auto stamp = stampOf(body);
    if (!stamp)
        return refuse(handler, "without a page stamp");
    auto stamped = PageStamp::verify(*stamp);
    if (!stamped)
        return refuse(handler, "with a page stamp that does not verify");
    WebKitWebView* view = nullptr;
    for (WebKitWebView* candidate : views)
        if (candidate && webkit_web_view_get_page_id(candidate) == stamped->pageID)
            view = candidate;
    if (!view)
        return refuse(handler, "from a page of another account or a closed window");
    if (!service.ownsAddress(stamped->origin))
        return refuse(handler, "from a frame of ", stamped->origin);
    if (!showsOwnPage(view, service))
        return refuse(handler, "from a frame of a page outside the service, stamped ", stamped->origin);
    return view;
}

} // namespace orvane
