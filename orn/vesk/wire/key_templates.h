// Key templates: the families of keys that are generated in batches and served one increment at a time. A template is
// always described as a 15-character constant with a 6-digit hexadecimal increment.
#pragma once

#include "orn/vesk/wire/list_page.h"

namespace vesk::wire {

inline constexpr Transaction kGetTemplateDepth = transaction("GetTemplateDepth");

inline constexpr auto kGetTemplateDepthRequest = request(
    kGetTemplateDepth,
    field<&RequestFields::caConstant>(9, 39),
    field<&RequestFields::caIncrementLen>(48, 2),
    field<&RequestFields::caConstantLen>(50, 2));

inline constexpr auto kGetTemplateDepthReply = reply<TemplateDepth>(
    field<&TemplateDepth::caIncrementLen>(13, 2, "Increment Length"),
    field<&TemplateDepth::caNextIncrement>(15, 40, "Next Increment"),
    field<&TemplateDepth::caLastIncrement>(55, 40, "Last Increment"),
    field<&TemplateDepth::caKeyServed>(95, 1, "Key Served"),
    field<&TemplateDepth::caTemplateFull>(96, 1, "Template Full"),
    field<&TemplateDepth::caIncrementCode>(97, 1, "Increment Code"));

inline constexpr Transaction kGetTemplateList = transaction("GetTemplateList");

inline constexpr auto kGetTemplateListRequest = request(kGetTemplateList);

// An entry of the list; the constant is its first 39 characters.
inline constexpr std::size_t kTemplateEntryBytes = 44;
inline constexpr std::size_t kTemplateNameBytes = 39;

inline constexpr Transaction kRemoveTemplate = transaction("RemoveTemplate");

// The only request that gives the lengths in this order, and a fixed "Y" before the constant.
inline constexpr auto kRemoveTemplateRequest = request(
    kRemoveTemplate,
    lit(9, "Y"),
    field<&RequestFields::caConstant>(10, 39),
    field<&RequestFields::caConstantLen>(49, 2),
    field<&RequestFields::caIncrementLen>(51, 2));

inline constexpr auto kRemoveTemplateReply = reply<KeyRecord>();

inline constexpr Transaction kSetNextIncrement = transaction("SetNextIncrement");

inline constexpr auto kSetNextIncrementRequest = request(
    kSetNextIncrement,
    field<&RequestFields::caConstant>(9, 39),
    field<&RequestFields::caIncrementLen>(48, 2),
    field<&RequestFields::caConstantLen>(50, 2),
    field<&RequestFields::caNextIncrement>(52, 40));

inline constexpr auto kSetNextIncrementReply = reply<KeyRecord>();

}  // namespace vesk::wire
