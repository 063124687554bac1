# Records the trial points of R's optim(method = "L-BFGS-B"), which the tests of the engine compare with.
# Usage: Rscript record_trials.R FOLDER      writes FOLDER/trials_*.json
# Bound codes are those of the program: 0 none, 1 lower, 2 upper, 3 both.

folder <- commandArgs(trailingOnly = TRUE)[1]

rosenbrock <- function(n) list(
  kind = "rosenbrock",
  fn = function(x) { i <- 1:(n - 1); sum(100 * (x[i + 1] - x[i]^2)^2 + (1 - x[i])^2) },
  gr = function(x) {
    g <- numeric(n); i <- 1:(n - 1)
    r <- x[i + 1] - x[i]^2
    g[i] <- g[i] - 400 * r * x[i] - 2 * (1 - x[i])
    g[i + 1] <- g[i + 1] + 200 * r
    g
  })

chained <- function(n) list(
  kind = "chained",
  fn = function(x) { i <- 2:n; 4 * (0.25 * (x[1] - 1)^2 + sum((x[i] - x[i - 1]^2)^2)) },
  gr = function(x) {
    g <- numeric(n); i <- 2:n
    r <- x[i] - x[i - 1]^2
    g[1] <- 2 * (x[1] - 1)
    g[i] <- g[i] + 8 * r
    g[i - 1] <- g[i - 1] - 16 * r * x[i - 1]
    g
  })

quadratic <- function(diag, off, b) {
  n <- length(diag)
  times <- function(x) diag * x + c(off * x[-1], 0) + c(0, off * x[-n])
  list(kind = "tridiagonal_quadratic", diag = diag, off = off, b = b,
       fn = function(x) sum(x * times(x)) / 2 - sum(b * x),
       gr = function(x) times(x) - b)
}

numbers <- function(x) paste0("[", paste(sprintf("%.17g", x), collapse = ","), "]")

record <- function(name, problem, x, code, l, u, m, factr) {
  n <- length(x)
  lower <- ifelse(code == 1 | code == 3, l, -Inf)
  upper <- ifelse(code == 2 | code == 3, u, Inf)
  trials <- list()
  watched <- function(x) { trials[[length(trials) + 1]] <<- x; problem$fn(x) }
  result <- optim(x, watched, problem$gr, method = "L-BFGS-B", lower = lower, upper = upper,
                  control = list(lmm = m, factr = factr, pgtol = 0, maxit = 1000))
  trials <- trials[seq_len(min(length(trials), 60))]
  functionText <- sprintf("{\"kind\":\"%s\",\"n\":%d", problem$kind, n)
  for (part in c("diag", "off", "b"))
    if (!is.null(problem[[part]])) functionText <- paste0(functionText, ",\"", part, "\":", numbers(problem[[part]]))
  text <- c(sprintf("{\"name\":\"%s\",\"n\":%d,\"m\":%d,\"factr\":%.17g,\"pgtol\":0,", name, n, m, factr),
            paste0("\"function\":", functionText, "},"),
            paste0("\"x\":", numbers(x), ","),
            paste0("\"l\":", numbers(ifelse(is.finite(lower), lower, 0)), ","),
            paste0("\"u\":", numbers(ifelse(is.finite(upper), upper, 0)), ","),
            paste0("\"nbd\":", numbers(code), ","),
            paste0("\"fixedFlag\":", numbers(0 * x), ","),
            paste0("\"maxStep\":", numbers(0 * x), ","),
            paste0("\"peer\":\"", R.version.string, "\",\"message\":\"", result$message, "\","),
            "\"trials\":[",
            paste(vapply(trials, numbers, ""), collapse = ",\n"),
            "]}")
  writeLines(text, file.path(folder, paste0("trials_", name, ".json")))
  cat(name, length(trials), result$counts, result$value, result$message, "\n")
}

free <- function(n) rep(0, n)
record("rosenbrock2", rosenbrock(2), c(-1.2, 1), free(2), free(2), free(2), 5, 10)
record("rosenbrock10", rosenbrock(10), rep(c(-1.2, 1), 5), free(10), free(10), free(10), 7, 10)
record("rosenbrock10_m1", rosenbrock(10), rep(c(-1.2, 1), 5), free(10), free(10), free(10), 1, 10)
record("rosenbrock10_m2", rosenbrock(10), rep(c(-1.2, 1), 5), free(10), free(10), free(10), 2, 10)
i <- 1:24
record("quadratic24", quadratic(2.5 + (i %% 7) * 3, 0.9 * cos(i[-24]), 6 * sin(1.3 * i)), rep(0.3, 24),
       i %% 4, rep(-0.2, 24), rep(0.25, 24), 4, 1e5)
record("quadratic24_all_sides", quadratic(2.5 + (i %% 7) * 3, 0.9 * cos(i[-24]), 6 * sin(1.3 * i)), rep(2, 24),
       rep(3, 24), rep(-0.2, 24), ifelse(i %% 6 == 0, -0.2, 0.25), 4, 1e5)
record("chained25", chained(25), rep(3, 25), rep(3, 25), rep(c(1, -100), length.out = 25), rep(100, 25), 5, 10)
record("rosenbrock25_bounded", rosenbrock(25), rep(c(-0.4, 0.3), length.out = 25), rep(c(3, 1, 2, 0, 3), 5),
       rep(c(-1.5, -0.5, 0, 0, 0.2), 5), rep(c(2, 0, 0.8, 0, 0.9), 5), 5, 10)
record("rosenbrock25_m3", rosenbrock(25), rep(c(0.5, 1.4), length.out = 25), rep(c(3, 1), length.out = 25),
       rep(-2, 25), rep(1.5, 25), 3, 10)
