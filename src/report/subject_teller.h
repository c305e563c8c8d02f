#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "model/examination.h"
#include "model/subject_judge.h"
#include "report/effect_words.h"
#include "report/job.h"
#include "report/recognition_words.h"
#include "uni/text_buffer.h"

namespace report {

// Tells of subjects in the form of a job, one after the other, on one thread.
class subject_teller {
public:
    // Both must outlive it.
    subject_teller(const job& work, const model::examination& all)
        : work_(work), all_(all), judge_(all.make_judge()), effects_(*work.database, work.options),
          recognition_(*work.database, work.options)
    {}

    // Those at places among the subjects, as far as the form takes more. Findings that are left out are
    // counted in `left_out`.
    using surplus_list = std::vector<model::finding_list::surplus>;
    void tell_all(std::size_t first, std::size_t end, surplus_list& left_out);

private:
    void tell();
    void tell_recognition();
    void tell_effects();
    void tell_findings();

    const job& work_;
    const model::examination& all_;
    const std::unique_ptr<model::subject_judge> judge_;
    effect_words effects_;
    recognition_words recognition_;
    model::subject seen_;    // in work
    uni::text_buffer title_; // the same
    uni::text_buffer line_;
};

} // namespace report
