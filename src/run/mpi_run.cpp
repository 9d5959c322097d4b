// The run with the time grid distributed over MPI ranks. Rank 0 alone reads the input and data
// files and writes every file, exactly as a single process does. It sends the engine's inputs to
// all ranks; the grid k = 0 .. nt is split into contiguous blocks balanced by count; every rank
// evaluates its block with the fast engine (threads inside each rank still apply); rank 0 gathers
// the blocks in order, takes the continuous square root over the whole grid and writes the table.
// Each time point is computed by the same single-threaded arithmetic wherever it runs, so the
// table is the same, bit for bit, for any number of ranks.
#include "run/run.h"

#ifdef ICTVCF_WITH_MPI

#include <mpi.h>

#include <algorithm>
#include <vector>

#include "engine/engine.h"
#include "run/progress.h"
#include "util/errors.h"

namespace ictvcf {

namespace {

using cplx = std::complex<double>;

// Contiguous blocks of the points 0 .. total-1, balanced by count.
struct Blocks {
  std::vector<int> count, start;
};

Blocks split(std::int64_t total, int ranks) {
  Blocks b{std::vector<int>(ranks), std::vector<int>(ranks)};
  const std::int64_t base = total / ranks, extra = total % ranks;
  std::int64_t at = 0;
  for (int r = 0; r < ranks; ++r) {
    const std::int64_t c = base + (r < extra ? 1 : 0);
    b.count[r] = static_cast<int>(c);
    b.start[r] = static_cast<int>(at);
    at += c;
  }
  return b;
}

}  // namespace

int run_mpi(const std::string& infile) {
  int provided = 0;
  MPI_Init_thread(nullptr, nullptr, MPI_THREAD_FUNNELED, &provided);
  int rank = 0, ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);

  // Rank 0 reads; the others learn whether to go on (and with which status to stop).
  RunState s;
  int decision[2] = {0, 0};  // go on?, exit status
  if (rank == 0) {
    bool go = false;
    decision[1] = guarded([&] { go = prepare_run(infile, s); });
    decision[0] = go && decision[1] == 0 ? 1 : 0;
  }
  MPI_Bcast(decision, 2, MPI_INT, 0, MPI_COMM_WORLD);
  if (!decision[0]) {
    MPI_Finalize();
    return decision[1];
  }

  // The engine's inputs and the grid (dt, nt), as doubles.
  std::vector<double> inputs;
  long long size = 0;
  if (rank == 0) {
    inputs = pack(engine_inputs(s.p, s.v));
    inputs.push_back(s.p.dt);
    inputs.push_back(static_cast<double>(s.p.nt));
    size = static_cast<long long>(inputs.size());
  }
  MPI_Bcast(&size, 1, MPI_LONG_LONG, 0, MPI_COMM_WORLD);
  inputs.resize(static_cast<std::size_t>(size));
  MPI_Bcast(inputs.data(), static_cast<int>(size), MPI_DOUBLE, 0, MPI_COMM_WORLD);
  const double dt = inputs[inputs.size() - 2];
  const auto nt = static_cast<std::int64_t>(inputs.back());
  const EngineInputs in =
      unpack_engine_inputs(std::span<const double>(inputs.data(), inputs.size() - 2));

  const std::int64_t total = nt + 1;
  const Blocks blocks = split(total, ranks);
  const int mine = blocks.count[rank];
  std::vector<cplx> u_block(std::max(mine, 1)), f_block(std::max(mine, 1));
  int status = 0;
  if (mine > 0)
    status = guarded([&] {
      compute_correlation(in, dt, blocks.start[rank], blocks.start[rank] + mine - 1, u_block.data(),
                          f_block.data(), false, 0, rank == 0 ? terminal_progress() : Progress{});
    });
  if (status != 0) MPI_Abort(MPI_COMM_WORLD, status);

  MPI_Datatype complex_type;
  MPI_Type_contiguous(2, MPI_DOUBLE, &complex_type);
  MPI_Type_commit(&complex_type);
  std::vector<cplx> usqrt, ft;
  if (rank == 0) {
    usqrt.resize(static_cast<std::size_t>(total));
    ft.resize(static_cast<std::size_t>(total));
  }
  MPI_Gatherv(u_block.data(), mine, complex_type, usqrt.data(), blocks.count.data(),
              blocks.start.data(), complex_type, 0, MPI_COMM_WORLD);
  MPI_Gatherv(f_block.data(), mine, complex_type, ft.data(), blocks.count.data(),
              blocks.start.data(), complex_type, 0, MPI_COMM_WORLD);
  MPI_Type_free(&complex_type);

  if (rank == 0) status = guarded([&] { finish_run(s, usqrt, ft); });
  MPI_Finalize();
  return status;
}

}  // namespace ictvcf

#endif
