// plot_file.h - what scripts/plot-varcal draws from: samples of the data and a grid of the models' log-odds, for each
// pair of annotations.
#pragma once

#include <string>
#include <vector>

#include "algo/vcall/recal/var_cal_training.h"

// Writes the file `path`; `output`, the path of the recal file, stands in the titles of its sections. Values are the data's,
// normalised, and columns in training order. `acceptedLod` is the VQSLOD from which on a datum counts as accepted. Draws
// from the generator of `training`. Throws std::runtime_error, `name` of the algorithm in front.
void writePlotFile(const std::string& name, const std::string& path, const std::string& output,
                   const VarCalParam& param, const VariantData& data, double acceptedLod,
                   VarCalTraining& training);
