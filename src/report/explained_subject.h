#pragma once

#include <cstdint>
#include <string_view>

#include "form/facts.h"
#include "model/examination.h"
#include "model/subject_judge.h"
#include "report/effect_words.h"
#include "report/job.h"
#include "report/recognition_words.h"

namespace report {

// A subject with what it gets, by names. The changes of a patch are told where it first comes.
class explained_subject : public form::told_facts {
public:
    explained_subject(const job& work, const model::examination& all, model::subject_judge& judge,
                      const model::subject& seen, effect_words& effects,
                      recognition_words& recognition)
        : work_(work), all_(all), judge_(judge), seen_(seen), effects_(effects),
          recognition_(recognition)
    {}

    std::string_view kind() const override { return "explained"; }
    void tell(form::fact_taker& to) const override;

private:
    void tell_fix(form::fact_taker& to, const model::fix_use& use) const;
    void tell_changes(form::fact_taker& to, std::uint32_t patch) const;

    const job& work_;
    const model::examination& all_;
    model::subject_judge& judge_;
    const model::subject& seen_;
    effect_words& effects_;
    recognition_words& recognition_;
};

} // namespace report
