#ifndef VELMOR_COMMAND_LINE_UTILS_FACILITYLOCATIONGROUPOPTIONS_H_
#define VELMOR_COMMAND_LINE_UTILS_FACILITYLOCATIONGROUPOPTIONS_H_

// The option values of one facility-location group of the program (FL or
// FL2): its matrix file and transformation, its function, its centrality
// term, its sets and the files it saves. Null texts are options not given.

namespace velmor {

struct FacilityLocationGroupOptions {
  const char* tag;     // "FL" or "FL2"
  const char* prefix;  // of the group's option names: "fl" or "fl2"
  const char* file_name;
  int rows, cols;
  double responsibility;
  const char* transformation;
  double softness;
  bool no_normalize;
  double centrality_responsibility;
  const char* centrality_spec;
  const char* centrality_transformation;
  const char* centrality_ccf_spec;
  bool one_hot_expand;
  int asym_iterations;
  const char* set_contraction;
  const char* set_attraction;
  const char* set_neglect;
  const char* save_matrix;
  const char* save_centrality;

  // Refuses, with an exception::CommandLineError, what the group cannot
  // honour, in this order: a negative or NaN responsibility ("FL weight =
  // '%g', but must be non-negative", and the same for "FL centrality"), a
  // centrality or curve that is not supported (ROWMIN(), ROWMAX(), ROWSUM(),
  // ROWMEAN(); LINEAR()), a centrality transformation or a centrality file to
  // save without a centrality term, asymmetric iterations.
  void Check() const;
};

}  // namespace velmor

#endif  // VELMOR_COMMAND_LINE_UTILS_FACILITYLOCATIONGROUPOPTIONS_H_
