// Look-ups in a link's device list. Internal to com/. No state; any thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

namespace jorvet::com {

template <class Record>
using record_list = std::vector<boost::shared_ptr<Record>>;

// The records for which `matches(record)` is true, in the order of the list.
template <class Record, class Predicate>
record_list<Record> records_where(record_list<Record> records, Predicate matches) {
    const auto differs = [&](const boost::shared_ptr<Record>& record) { return !matches(*record); };
    records.erase(std::remove_if(records.begin(), records.end(), differs), records.end());
    return records;
}

// The record at a place of the list, or a record of no device past its end.
template <class Record>
boost::shared_ptr<Record> record_at(const record_list<Record>& records, std::size_t index) {
    return index < records.size() ? records[index] : boost::make_shared<Record>();
}

} // namespace jorvet::com
