#include "ServiceCatalog.h"

#include <glib.h>

namespace orvane {

ServiceCatalog::ServiceCatalog(const std::string& overridesPath)
    : m_gmail(MailService::build(AccountService::Mail, overridesPath))
    , m_calendar(MailService::build(AccountService::Calendar, overridesPath))
    , m_outlook(MailService::build(AccountService::Outlook, overridesPath)) {
}

ServiceCatalog ServiceCatalog::fromEnvironment() {
    const char* path = g_getenv("ORVANE_SERVICE_OVERRIDES");
    return ServiceCatalog(path ? path : "");
}

const MailService& ServiceCatalog::forService(std::optional<AccountService> service) const {
    switch (service.value_or(AccountService::Mail)) {
    case AccountService::Calendar:
        return m_calendar;
    case AccountService::Outlook:
        return m_outlook;
    case AccountService::Mail:
        break;
    }
    return m_gmail;
}

} // namespace orvane
