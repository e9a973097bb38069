#include "AccountService.h"

namespace orvane {

std::string_view rawValue(AccountService service) {
    switch (service) {
    case AccountService::Mail:
        return "mail";
    case AccountService::Calendar:
        return "calendar";
    case AccountService::Outlook:
        return "outlook";
    }
    return "mail";
}

std::optional<AccountService> accountServiceFromRaw(std::string_view raw) {
    if (raw == "mail")
        return AccountService::Mail;
    if (raw == "calendar")
        return AccountService::Calendar;
    if (raw == "outlook")
        return AccountService::Outlook;
    return std::nullopt;
}

} // namespace orvane
