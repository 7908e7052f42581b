"""What the reports on the benchmark share."""


def aligned(rows: list[list[str]], left_columns: int) -> str:
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    lines = []
    for row in rows:
        cells = [cell.ljust(w) if i < left_columns else cell.rjust(w) for i, (cell, w) in enumerate(zip(row, widths))]
        lines.append("  ".join(cells).rstrip())
    return "\n".join(lines)
