#include "kova/kova_measure.h"

namespace kovacli {

void open_job(text_job &job, const common_options &common, const std::string &locale,
              locale_handle &handle, const char *with_replace) {
    const data_place data = open_with_codec(common, locale, handle, job.code);
    add_mapping(handle, data, job.code); // if the form is bytes, marks are known if there is one
    if (job.code.mapped && job.code.wide_of['\t']) job.tab = job.code.wide_of['\t'];
    job.bad.with_replace = with_replace;
    for (unsigned wide = 0; wide < 65536; ++wide) {
        const auto wc = ko_wchar_t(wide);
        job.columns[wide] = int8_t(columns_of(job.code, &wc, 1));
        job.space[wide] = im_iswctype(handle.loc, wc, KO_CT_SPACE) != 0;
    }
}

void write_kept(kept_text &to) {
    to.bytes.clear();
    encode(to.job->code, to.wide.data(), to.wide.size(), to.bytes);
    write(*to.out, to.bytes);
    to.wide.clear();
}

void keep(kept_text &to, uint64_t count, ko_wchar_t wide) {
    while (count > 0) {
        const uint64_t some = std::min<uint64_t>(count, 65536);
        to.wide.insert(to.wide.end(), size_t(some), wide);
        write_if_long(to);
        count -= some;
    }
}

} // namespace kovacli
