// plot_file.h - what scripts/plot-varcal draws from: samples of the data and a grid of the models' log-odds, for each
// pair of annotations.
#pragma once

#include <string>
#include <vector>

#include "algo/vcall/recal/var_cal_training.h"

// `acceptedLod` is the cut of the first tranche.
void writePlotFile(const std::string& name, const std::string& path, const std::string& output,
                   const VarCalParam& param, const std::vector<VariantDatum>& data, double acceptedLod,
                   VarCalTraining& training);
