// SPDX-License-Identifier: MIT
#include "bool_param.hpp"

#include <PvGenParameterArray.h>

#include "errors.hpp"
#include "mg_log.hpp"

namespace Vorn::Support::MediaGrabber::Jai {

static constexpr char _S_logTag[] = "JAI_PARAMS";

bool_enum_param::bool_enum_param(param_provider_like* provider, char const* name, char const* trueText,
                                 char const* falseText)
    : provider_(provider), name_(name), trueText_(trueText), falseText_(falseText) {}

void bool_enum_param::setValue(bool value) {
    auto* const params = provider_->getDevParams();
    if (params == nullptr) {
        MG_LOG_E("fail: param_provider_like::getDevParams\n");
        throw internal_error();
    }
    PvString const& text = value ? trueText_ : falseText_;
    PvResult const result = params->SetEnumValue(name_, text);
    if (!result.IsOK()) {
        MG_LOG_E("fail: SetEnumValue (name:%s, value:%s, result:<%s>)\n", name_.GetAscii(), text.GetAscii(),
                 result.GetCodeString().GetAscii());
        throw internal_error();
    }
    MG_LOG_I("done: SetEnumValue (name:%s, value:%s)\n", name_.GetAscii(), text.GetAscii());
}

}  // namespace Vorn::Support::MediaGrabber::Jai
