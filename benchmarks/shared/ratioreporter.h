// SPDX-License-Identifier: MIT
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/*!
 * Prints behind the table how fast the first row of each group is beside the others. A group is the
 * rows named "group/row". With repetitions the medians count.
 */
class RatioReporter : public benchmark::ConsoleReporter
{
public:
    RatioReporter()
        : ConsoleReporter(OO_None)
    {
    }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            const bool isAggregate = run.run_type == Run::RT_Aggregate;
            if (run.iterations == 0 || (isAggregate && run.aggregate_name != "median"))
                continue;
            const std::string name = run.run_name.function_name;
            const std::size_t slash = name.find('/');
            m_times[name.substr(0, slash)][name.substr(slash + 1)] = run.GetAdjustedCPUTime();
        }
    }

    //! Names the rows of a group, in order.
    void addGroup(const std::string &group, const std::vector<std::string> &rows)
    {
        m_groups.emplace_back(group, rows);
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        for (const auto &[group, rows] : m_groups) {
            const std::map<std::string, double> &times = m_times[group];
            const auto first = times.find(rows.front());
            for (std::size_t i = 1; i < rows.size(); ++i) {
                const auto other = times.find(rows[i]);
                if (first == times.end() || other == times.end())
                    continue;
                char ratio[32];
                std::snprintf(ratio, sizeof ratio, "%.2f", other->second / first->second);
                GetOutputStream() << group << ": " << rows.front() << " at " << ratio
                                  << " of the rate of " << rows[i] << '\n';
            }
        }
    }

private:
    std::vector<std::pair<std::string, std::vector<std::string>>> m_groups;
    std::map<std::string, std::map<std::string, double>> m_times;
};
