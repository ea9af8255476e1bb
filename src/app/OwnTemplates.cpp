#include "app/OwnTemplates.h"

#include "platform/UnicodeText.h"
#include "storage/VRSettings.h"
#include "templates/TemplateBodies.h"
#include "templates/VXHelperTemplate.h"

namespace app {
namespace {

std::string reasonOf(const platform::ErrorRef& error) {
    if (!error) return "unknown error";
    std::string reason = error->localizedDescription();
    const platform::PlistValue& path = error->userInfo().count(platform::NSFilePathErrorKey)
                                           ? error->userInfo().at(platform::NSFilePathErrorKey)
                                           : platform::PlistValue();
    if (const std::string* text = path.string(); text && reason.find(*text) == std::string::npos)
        reason += " (" + *text + ")";
    return reason;
}

OwnTemplateOutcome listFailure(const std::string& what, const platform::ErrorRef& error) {
    return {std::nullopt, what + ": the template list could not be written: " + reasonOf(error)};
}

OwnTemplateOutcome notYours(const std::string& identifier) {
    return {std::nullopt, identifier + " is not one of your templates", true};
}

}  // namespace

bool isOwnTemplate(TemplateManager& manager, const std::string& identifier) {
    for (const auto& item : manager.userTemplates())
        if (item.identifier() == identifier) return true;
    return false;
}

OwnTemplateOutcome createOwnTemplate(TemplateManager& manager, const VXTemplateRef& tpl,
                                     const std::optional<std::string>& name) {
    if (!tpl) return {std::nullopt, "there is no template to store"};
    // The counter is taken only for a name that validateTemplateName replaces.
    const bool blank = !name || platform::isBlank(*name);
    const auto index = blank ? static_cast<std::uint64_t>(VRSettings::incrementedIndex()) : 0;
    tpl->setName(VXHelper::validateTemplateName(name, index));
    auto identifier = TemplateBodies::saveTemplate(*tpl, false);
    if (!identifier) return {std::nullopt, "the template could not be stored"};
    platform::ErrorRef error;
    if (!manager.updateUserTemplate(tpl, *identifier, &error)) {
        // A body that no list names could never be listed or removed.
        VRSettings::removeTemplateDirWithIdentifier(*identifier);
        return listFailure("the template was not created", error);
    }
    return {identifier, {}};
}

OwnTemplateOutcome renameOwnTemplate(TemplateManager& manager, const std::string& identifier,
                                     const std::string& name) {
    if (!isOwnTemplate(manager, identifier)) return notYours(identifier);
    platform::ErrorRef error;
    if (!manager.renameUserTemplateWith(name, identifier, &error))
        return error ? listFailure("the template was not renamed", error) : notYours(identifier);
    return {identifier, {}};
}

OwnTemplateOutcome duplicateOwnTemplate(TemplateManager& manager, const std::string& identifier,
                                        const std::optional<std::string>& name) {
    if (!isOwnTemplate(manager, identifier)) return notYours(identifier);
    VXTemplateRef original;
    for (const auto& item : manager.userTemplates())
        if (item.identifier() == identifier) original = manager.templateForItem(item);
    if (!original) return {std::nullopt, "the template of " + identifier + " is unreadable"};
    auto copy = original->newTemplate();
    if (name) copy->setName(*name);
    platform::ErrorRef error;
    auto made = manager.duplicateUserTemplateWith(identifier, copy, &error);
    if (!made && error) return listFailure("the template was not copied", error);
    if (!made) return {std::nullopt, "the copy could not be stored"};
    return {made, {}};
}

OwnTemplateOutcome removeOwnTemplate(TemplateManager& manager, const std::string& identifier) {
    platform::ErrorRef error;
    if (!manager.removeUserTemplateWith(identifier, &error))
        return error ? listFailure("the template was not removed", error) : notYours(identifier);
    VRSettings::removeTemplateDirWithIdentifier(identifier);
    return {identifier, {}};
}

}  // namespace app
