"""The page: what was promised against what came out, in tables and plots."""
import os

from movies_fit import plots, tables
from movies_fit.results import Results


def write(rows, adapter, worker, docs, work):
    results = Results(rows, adapter, worker)
    if not results.ours:
        print("nothing measured with this adapter yet")
        return
    os.makedirs(work, exist_ok=True)
    os.makedirs(docs, exist_ok=True)
    with open(os.path.join(os.path.dirname(__file__), "page.md"), encoding="utf-8") as file:
        page = file.read()
    fields = {
        "COVERAGE": tables.coverage(results),
        "CLAIMS": tables.claims(results),
        "FORMATS": tables.byFormat(results),
        "BUDGETS": tables.byBudget(results),
        "CLIPS": tables.byClip(results),
        "FITTED": tables.fitted(results),
        "PROBLEMS": "\n".join("- " + line for line in tables.problems(results)) or "None.",
        "NOT_PLANNED": tables.notPlanned(results),
    }
    for name, text in fields.items():
        page = page.replace("{" + name + "}", text)
    with open(os.path.join(docs, "movies-fit.md"), "w", encoding="utf-8") as file:
        file.write(page)
    plots.draw(results, docs, work)
