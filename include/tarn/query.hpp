/* The query string. */
#ifndef TARN_QUERY_HPP
#define TARN_QUERY_HPP

#include "input.hpp"
#include "whole_form.hpp"

namespace tarn {

/** The fields of QUERY_STRING, whatever the method of the request is: a Form of its own.
 *
 *  @code
 *  const tarn::Query query;
 *  const auto id = tarn::integer(query["id"], 1);
 *  @endcode
 *
 *  A Form reads the query string of a GET request only, and the body of any other.
 */
class Query : public Form {
 public:
  /** Reads the query string of the request that the script answers. */
  explicit Query(const FormLimits &limits = FormLimits()) noexcept
      : Form(FormReader::from_query(detail::or_empty(detail::variable("QUERY_STRING")), limits)) {}
};

}  // namespace tarn

#endif  // TARN_QUERY_HPP
